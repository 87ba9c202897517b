// A host with signal handlers of its own around tool runs: a fast interval timer whose handler
// has no SA_RESTART, and a SIGCHLD handler that reaps every child (as GUI toolkits do), which
// frees the pid of the library's tool for another process to take.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <netinet/in.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/tool_runs.h"

using namespace std::chrono_literals;
using namespace wrenlink::test;

extern char **environ;

namespace {

// A handler of the host's for `sig`, for the life of the object.
class HostHandler {
public:
    HostHandler(int sig, void (*handler)(int), int flags) : sig_(sig) {
        struct sigaction sa {};
        sa.sa_handler = handler;
        sa.sa_flags = flags;
        ::sigaction(sig, &sa, &old_);
    }
    ~HostHandler() { ::sigaction(sig_, &old_, nullptr); }

private:
    int sig_;
    struct sigaction old_ {};
};

std::atomic<int> g_ticks{0};
void count_tick(int) { ++g_ticks; }

void reap_every_child(int) {
    const int saved = errno;
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = saved;
}

// A process unrelated to the test's (its parent exits at once) that takes the number `pid`, free
// again in this PID namespace, and waits. It holds a pipe whose end tells when it has died.
class Bystander {
public:
    explicit Bystander(pid_t pid) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        if (::fork() == 0) {  // only async-signal-safe calls from here: the test has threads
            char last[32];
            const int n = std::snprintf(last, sizeof last, "%d", pid - 1);
            const int fd = ::open("/proc/sys/kernel/ns_last_pid", O_WRONLY);
            if (n > 0 && ::write(fd, last, static_cast<std::size_t>(n)) == n && ::fork() == 0) {
                const pid_t self = ::getpid();
                (void)!::write(fds[1], &self, sizeof self);
                for (;;) ::pause();
            }
            ::_exit(0);
        }
        ::close(fds[1]);
        alive_ = fds[0];
        if (::read(alive_, &pid_, sizeof pid_) != sizeof pid_) pid_ = -1;
        ::fcntl(alive_, F_SETFL, O_NONBLOCK);
    }
    ~Bystander() {
        if (pid_ > 0) ::kill(pid_, SIGKILL);
        ::close(alive_);
    }
    pid_t pid() const { return pid_; }
    bool alive() const {
        char byte;
        return ::read(alive_, &byte, 1) < 0 && errno == EAGAIN;
    }

private:
    pid_t pid_ = -1;
    int alive_ = -1;
};

constexpr const char *kInsideNamespace = "WRENLINK_TEST_IN_PID_NAMESPACE";

// Runs the current test again in a PID namespace of its own (where pids can be handed out on
// purpose), behind a shell that is the namespace's first process and so adopts the orphans, and
// takes that run's outcome.
void rerun_in_own_pid_namespace() {
    if (std::system("unshare --pid --fork --mount-proc true >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "no PID namespace can be made here";
    }
    const auto *test = testing::UnitTest::GetInstance()->current_test_info();
    char self[PATH_MAX] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    const char *argv[] = {"unshare", "--pid", "--fork", "--mount-proc", "--kill-child", "sh", "-c",
                          "\"$@\"; exit $?", "sh", self, filter.c_str(), nullptr};
    ::setenv(kInsideNamespace, "1", 1);
    pid_t pid;
    const int failure = ::posix_spawnp(&pid, "unshare", nullptr, nullptr, const_cast<char **>(argv), environ);
    ::unsetenv(kInsideNamespace);
    ASSERT_EQ(failure, 0);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the run in the namespace failed";
}

}  // namespace

TEST(Signals, TerminateGraceLastsThroughATimersInterruptions) {
    FakeAdb adb;
    adb.scenario("always slow-term 250 sleep 30000");
    g_ticks = 0;
    {
        const HostHandler alarm(SIGALRM, count_tick, 0);
        const itimerval every{{0, 1000}, {0, 1000}}, off{};
        ::setitimer(ITIMER_REAL, &every, nullptr);
        adb_text(" logcat", false);
        ::setitimer(ITIMER_REAL, &off, nullptr);
    }
    EXPECT_GT(g_ticks.load(), 100);
    // The tool got its terminate signal and the quarter second it took to go.
    std::vector<std::string> kinds;
    for (const auto &r : adb.records()) kinds.push_back(r.kind + (r.kind == "exit" ? " " + r.words.at(0) : ""));
    EXPECT_EQ(kinds, (std::vector<std::string>{"argv", "term", "exit 143"}));
}

// A send that the host's signals interrupt goes on where it stopped: the peer, slower than the
// sender so that its sends block, gets every byte in order. A receive that they interrupt fails.
TEST(Signals, SendGoesOnThroughInterruptions) {
    const HostHandler handler(SIGUSR1, count_tick, 0);  // no SA_RESTART: a blocked send sees EINTR
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size), 0);
    NetConnection *conn = NetConnectionOpen("127.0.0.1", ntohs(address.sin_port));
    ASSERT_NE(conn, nullptr);
    const int peer = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);

    std::string data(16 << 20, '\0');
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>((i * 2654435761u) >> 24);
    std::string received;
    std::thread reader([&] {
        char chunk[65536];
        for (ssize_t n; (n = ::read(peer, chunk, sizeof chunk)) > 0;) {
            received.append(chunk, static_cast<std::size_t>(n));
            std::this_thread::sleep_for(1ms);
        }
    });
    g_ticks = 0;
    std::atomic<bool> done{false};
    const pthread_t sender = ::pthread_self();
    std::thread signaller([&] {
        while (!done) {
            ::pthread_kill(sender, SIGUSR1);
            std::this_thread::sleep_for(200us);
        }
    });
    const int32_t sent = NetConnectionSend(conn, data.data(), static_cast<int32_t>(data.size()), 0);
    char nothing[4];
    errno = 0;
    const int32_t received_none = NetConnectionRecv(conn, nothing, sizeof nothing, 0);  // the peer never sends
    const int interrupted = errno;
    done = true;
    signaller.join();
    NetConnectionClose(conn);
    reader.join();
    ::close(peer);
    EXPECT_GT(g_ticks.load(), 100);
    EXPECT_EQ(sent, static_cast<int32_t>(data.size()));
    EXPECT_TRUE(received == data) << received.size() << " of " << data.size() << " bytes arrived";
    EXPECT_EQ(received_none, -1);
    EXPECT_EQ(interrupted, EINTR);
}

TEST(PidSafety, ToolReapedByTheHostIsNeverSignalledNorItsPidsNewOwner) {
    if (std::getenv(kInsideNamespace) == nullptr) return rerun_in_own_pid_namespace();
    const HostHandler reaper(SIGCHLD, reap_every_child, SA_RESTART);
    FakeAdb adb;
    adb.scenario("args quick out \"text\\n\"\nargs brief exit 0");
    // The host reaps the tool first; the run still gives its text.
    EXPECT_EQ(adb_text(" quick"), "text\n");

    std::thread run([] { adb_text(" brief", false); });
    pid_t tool = 0;
    // Reaped once even a zombie of it is gone.
    for (int i = 0; i < 2000 && (tool == 0 || ::kill(tool, 0) == 0); ++i) {
        std::this_thread::sleep_for(2ms);
        for (const auto &r : adb.records()) {
            if (r.kind == "argv" && r.words.back() == "brief") tool = static_cast<pid_t>(r.pid);
        }
    }
    ASSERT_TRUE(tool != 0 && ::kill(tool, 0) != 0) << "the host never reaped the tool";
    // While the run waits out its second, another process takes the tool's number.
    const Bystander bystander(tool);
    run.join();
    ASSERT_EQ(bystander.pid(), tool) << "the pid could not be handed out again";
    EXPECT_TRUE(bystander.alive()) << "the run signalled the process that took its tool's pid";
}
