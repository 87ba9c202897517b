#include "harness.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "base/unique_fd.h"
#include "base/platform.h"
#include "e2e/adb/loopback_server.h"

namespace wrenlink::test {

namespace {

using Clock = std::chrono::steady_clock;

bool make_pipe(UniqueFd &read_end, UniqueFd &write_end) {
    int fds[2];
    if (!platform::cloexec_pipe(fds)) return false;
    read_end.reset(fds[0]);
    write_end.reset(fds[1]);
    return true;
}

std::vector<char *> argv_of(const std::vector<std::string> &args) {
    std::vector<char *> argv;
    for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    return argv;
}

int remaining_ms(Clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

int wait_status(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

void set_environment(const char *name, const std::string &value) { ::setenv(name, value.c_str(), 1); }

}  // namespace

bool system_adb_available() { return ::access(kSystemAdb, X_OK) == 0; }

std::string random_bytes(std::size_t size, unsigned seed) {
    std::mt19937 gen(seed);
    std::string out(size, '\0');
    for (auto &c : out) c = static_cast<char>(gen() & 0xFF);
    return out;
}

RunResult run_program(const std::vector<std::string> &argv, std::string_view input, std::chrono::milliseconds deadline) {
    RunResult result;
    UniqueFd in_read, in_write, out_read, out_write, err_read, err_write;
    if (!make_pipe(in_read, in_write) || !make_pipe(out_read, out_write) || !make_pipe(err_read, err_write)) return result;
    const auto args = argv_of(argv);
    const pid_t pid = ::fork();
    if (pid < 0) return result;
    if (pid == 0) {
        ::dup2(in_read.get(), 0);
        ::dup2(out_write.get(), 1);
        ::dup2(err_write.get(), 2);
        ::execv(args[0], args.data());
        ::_exit(127);
    }
    in_read.reset();
    out_write.reset();
    err_write.reset();
    ::fcntl(in_write.get(), F_SETFL, O_NONBLOCK);
    if (input.empty()) in_write.reset();

    const auto end = Clock::now() + deadline;
    std::string out, err;
    char buffer[65536];
    while (out_read || err_read) {
        pollfd fds[3];
        nfds_t n = 0;
        for (UniqueFd *fd : {&out_read, &err_read})
            if (*fd) fds[n++] = {fd->get(), POLLIN, 0};
        if (in_write) fds[n++] = {in_write.get(), POLLOUT, 0};
        const int ready = ::poll(fds, n, remaining_ms(end));
        if (ready == 0) {
            result.timed_out = true;
            ::kill(pid, SIGKILL);
            break;
        }
        if (ready < 0) continue;
        for (nfds_t i = 0; i < n; ++i) {
            if (fds[i].revents == 0) continue;
            if (in_write && fds[i].fd == in_write.get()) {
                const ssize_t w = ::write(in_write.get(), input.data(), input.size());
                if (w > 0) input.remove_prefix(static_cast<std::size_t>(w));
                if (w < 0 || input.empty()) in_write.reset();
                continue;
            }
            UniqueFd &source = fds[i].fd == out_read.get() ? out_read : err_read;
            const ssize_t r = ::read(source.get(), buffer, sizeof buffer);
            if (r > 0) (&source == &out_read ? out : err).append(buffer, static_cast<std::size_t>(r));
            else source.reset();
        }
    }
    result.status = wait_status(pid);
    result.output = out + err;
    return result;
}

// ---- PhoneProcess ----------------------------------------------------------------------------

PhoneProcess::PhoneProcess(const std::vector<Phone> &phones) {
    std::vector<std::string> args = {WRENLINK_PHONE_PATH};
    for (const auto &p : phones) {
        args.emplace_back("--phone");
        args.push_back("port=0,profile=" + p.profile + ",sandbox=" + p.sandbox);
    }
    // Its complaints go to the test's stderr; no phone outlives a test run that dies.
    process_ = support::ChildProcess(args, {.stderrPath = "", .endWithParent = true});

    // One "ready 127.0.0.1:PORT" line per phone.
    const auto end = Clock::now() + std::chrono::seconds(20);
    std::vector<std::string> serials;
    while (serials.size() < phones.size() && process_.started()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        const std::string line = process_.read_line(left);
        if (line.empty()) break;
        if (line.starts_with("ready ")) serials.push_back(line.substr(6));
    }
    if (serials.size() == phones.size()) serials_ = std::move(serials);
}

PhoneProcess::~PhoneProcess() { stop(); }

unsigned PhoneProcess::port(std::size_t i) const {
    const std::string &s = serial(i);
    return static_cast<unsigned>(std::strtoul(s.c_str() + s.rfind(':') + 1, nullptr, 10));
}

void PhoneProcess::stop() { process_.stop(SIGTERM); }

// ---- PrivateAdbServer ------------------------------------------------------------------------

PrivateAdbServer::PrivateAdbServer() : port_(free_loopback_port()) {
    if (port_ == 0) return;
    set_environment("ANDROID_ADB_SERVER_PORT", std::to_string(port_));
    set_environment("HOME", home_.root().string());   // the server keeps its key in $HOME/.android
    ::unsetenv("ADB_SERVER_SOCKET");
    ::unsetenv("ANDROID_SERIAL");
    started_ = run({"start-server"}).status == 0;
}

PrivateAdbServer::~PrivateAdbServer() {
    if (port_ != 0) run({"kill-server"}, {}, std::chrono::seconds(10));
}

RunResult PrivateAdbServer::run(const std::vector<std::string> &args, std::string_view input,
                                std::chrono::milliseconds deadline) const {
    std::vector<std::string> argv = {kSystemAdb};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_program(argv, input, deadline);
}

bool PrivateAdbServer::connect(const std::string &serial) const {
    const RunResult r = run({"connect", serial});
    if (r.output.find("connected to") == std::string::npos) return false;
    const auto end = Clock::now() + std::chrono::seconds(15);
    while (Clock::now() < end) {
        if (run({"-s", serial, "get-state"}).output.starts_with("device")) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

}  // namespace wrenlink::test
