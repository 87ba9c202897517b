#include "adb/process/child.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <thread>
#include <utility>

#include "base/cancellation.h"
#include "base/platform.h"

namespace wrenlink::process {

namespace {

// How often a child is looked at while a process it started keeps its pipes open, where the
// platform gives no descriptor that tells of the exit. The common case never waits for it: the
// pipes end when the child exits.
constexpr int kExitCheckMs = 10;

// What a run keeps of one stream: its text up to the first NUL, and no more than the room the
// caller's buffer leaves it.
class KeptText {
public:
    // Keeps what of `chunk` still belongs to the text and fits in `room` (which only ever shrinks).
    void take(std::string_view chunk, std::size_t room) {
        if (full_) return;
        if (const std::size_t nul = chunk.find('\0'); nul != std::string_view::npos) {
            chunk = chunk.substr(0, nul);
            full_ = true;
        }
        if (text_.size() < room) text_.append(chunk.substr(0, room - text_.size()));
        if (text_.size() >= room) full_ = true;
    }
    std::string take_text(std::size_t room) {
        if (text_.size() > room) text_.resize(room);
        return std::move(text_);
    }
    std::size_t size() const { return text_.size(); }

private:
    std::string text_;
    bool full_ = false;
};

enum class Stream { Open, Ended };

// Reads what `fd` holds at this moment and hands each chunk to `kept`. Ended at the end of the
// stream (a read error counts as one: nothing more can come from it).
template <class Keep>
Stream drain(int fd, Keep &&kept) {
    char chunk[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            kept(std::string_view(chunk, static_cast<std::size_t>(n)));
        } else if (n == 0) {
            return Stream::Ended;
        } else if (errno != EINTR) {
            return errno == EAGAIN || errno == EWOULDBLOCK ? Stream::Open : Stream::Ended;
        }
    }
}

struct SpawnActions {
    posix_spawn_file_actions_t value{};
    int status = posix_spawn_file_actions_init(&value);
    ~SpawnActions() {
        if (status == 0) posix_spawn_file_actions_destroy(&value);
    }
};

struct SpawnAttributes {
    posix_spawnattr_t value{};
    int status = posix_spawnattr_init(&value);
    ~SpawnAttributes() {
        if (status == 0) posix_spawnattr_destroy(&value);
    }
};

// The child starts clean: no blocked signal, no ignored one (a host that ignores SIGPIPE would
// otherwise pass that on), and none of the host's descriptors beyond the standard three.
int prepare_spawn(SpawnActions &actions, SpawnAttributes &attributes, const Stdio &stdio) {
    if (actions.status != 0) return actions.status;
    if (attributes.status != 0) return attributes.status;
    int failure = 0;
    auto step = [&failure](int result) {
        if (failure == 0) failure = result;
    };
    if (stdio.in) step(posix_spawn_file_actions_adddup2(&actions.value, stdio.in->read.get(), STDIN_FILENO));
    if (stdio.out) step(posix_spawn_file_actions_adddup2(&actions.value, stdio.out->write.get(), STDOUT_FILENO));
    if (stdio.err) step(posix_spawn_file_actions_adddup2(&actions.value, stdio.err->write.get(), STDERR_FILENO));
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    step(platform::spawn_closes_other_descriptors(&actions.value, flags));
    sigset_t none;
    sigemptyset(&none);
    step(posix_spawnattr_setsigmask(&attributes.value, &none));
    sigset_t all;
    sigfillset(&all);
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    step(posix_spawnattr_setsigdefault(&attributes.value, &all));
    step(posix_spawnattr_setflags(&attributes.value, flags));
    return failure;
}

}  // namespace

int spawn(const std::string &path, const std::vector<std::string> &argv, Stdio stdio, Child &child) {
    std::vector<char *> args;
    args.reserve(argv.size() + 1);
    for (const auto &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);

    SpawnActions actions;
    SpawnAttributes attributes;
    if (const int failure = prepare_spawn(actions, attributes, stdio); failure != 0) return failure;
    pid_t pid = -1;
    const int failure = ::posix_spawn(&pid, path.c_str(), &actions.value, &attributes.value, args.data(),
                                      platform::environment());
    if (failure != 0) return failure;

    child = Child(pid, stdio.in ? std::move(stdio.in->write) : UniqueFd(),
                  stdio.out ? std::move(stdio.out->read) : UniqueFd(),
                  stdio.err ? std::move(stdio.err->read) : UniqueFd());
    // The child's own ends: once it has them, the host must not keep a stream open behind its back.
    if (stdio.in) stdio.in->read.reset();
    if (stdio.out) stdio.out->write.reset();
    if (stdio.err) stdio.err->write.reset();
    return 0;
}

Child::Child(pid_t pid, UniqueFd in, UniqueFd out, UniqueFd err) noexcept
    : pid_(pid), in_(std::move(in)), out_(std::move(out)), err_(std::move(err)) {
    const NoCancel whole;  // the child must not be lost between its start and its handle
    platform::ChildHandle handle = platform::child_handle(pid);
    if (handle.gone) pid_ = -1;  // already reaped by the host: nothing to signal or wait for
    handle_ = std::move(handle.fd);
}

Child::Child(Child &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      handle_(std::move(other.handle_)),
      in_(std::move(other.in_)),
      out_(std::move(other.out_)),
      err_(std::move(other.err_)) {}

Child &Child::operator=(Child &&other) noexcept {
    if (this != &other) {
        kill_and_reap();
        pid_ = std::exchange(other.pid_, -1);
        handle_ = std::move(other.handle_);
        in_ = std::move(other.in_);
        out_ = std::move(other.out_);
        err_ = std::move(other.err_);
    }
    return *this;
}

Child::~Child() { kill_and_reap(); }

void Child::signal(int sig) {
    if (running()) platform::signal_child(pid_, handle_.get(), sig);
}

bool Child::reap_if_exited() {
    if (running() && platform::reap_child(pid_, handle_.get(), false) != platform::Reaped::No) pid_ = -1;
    return !running();
}

void Child::reap_blocking() noexcept {
    if (!running()) return;
    const NoCancel cleanup;
    platform::reap_child(pid_, handle_.get(), true);
    pid_ = -1;
}

bool Child::wait_for(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!reap_if_exited()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        if (handle_) {
            pollfd exit{handle_.get(), POLLIN, 0};
            ::poll(&exit, 1, static_cast<int>(left.count()));  // a signal ends it early: wait on
        } else {
            std::this_thread::sleep_for(std::min(left, std::chrono::milliseconds(2)));
        }
    }
    return true;
}

void Child::kill_and_reap() noexcept {
    if (!running()) return;
    const NoCancel cleanup;
    platform::signal_child(pid_, handle_.get(), SIGKILL);
    reap_blocking();
}

Child::Output Child::collect(std::size_t keep) {
    KeptText outText, errText;
    auto keepOut = [&](std::string_view chunk) { outText.take(chunk, keep); };
    auto keepErr = [&](std::string_view chunk) { errText.take(chunk, keep - outText.size()); };
    if (out_) set_nonblocking(out_.get());
    if (err_) set_nonblocking(err_.get());

    bool exited = !running();
    while ((out_ || err_) && !exited) {
        pollfd fds[3];
        nfds_t count = 0;
        auto add = [&](const UniqueFd &fd) -> pollfd * {
            if (!fd) return nullptr;
            fds[count] = pollfd{fd.get(), POLLIN, 0};
            return &fds[count++];
        };
        const pollfd *out = add(out_);
        const pollfd *err = add(err_);
        const pollfd *ended = add(handle_);
        const int ready = ::poll(fds, count, handle_ ? -1 : kExitCheckMs);
        if (ready < 0 && errno != EINTR) break;

        if (out && out->revents != 0 && drain(out_.get(), keepOut) == Stream::Ended) out_.reset();
        if (err && err->revents != 0 && drain(err_.get(), keepErr) == Stream::Ended) err_.reset();
        if (!ended) {
            exited = reap_if_exited();
        } else if (ended->revents != 0) {
            reap_blocking();  // the child has ended: this returns at once
            exited = true;
        }
    }
    // The child has ended: take what it left in the pipes and stop, without waiting for an end
    // of stream that a process it started may hold back for ever.
    if (out_) drain(out_.get(), keepOut);
    if (err_) drain(err_.get(), keepErr);
    out_.reset();
    err_.reset();
    in_.reset();
    reap_blocking();
    Output output;
    output.out = outText.take_text(keep);
    output.err = errText.take_text(keep - output.out.size());
    return output;
}

}  // namespace wrenlink::process
