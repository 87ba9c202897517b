// Stopping every adb process, against the real adb tool's server on a private port and home. The
// binary's name holds "adb": the kill must spare its caller. It runs only in a PID namespace of
// its own (see run_in_pid_namespace.sh).
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "doubles/temp_tree.h"
#include "e2e/adb/loopback_server.h"

extern char **environ;

namespace {

pid_t start_sleeper(const char *name) {
    char *argv[] = {const_cast<char *>(name), const_cast<char *>("60"), nullptr};
    pid_t pid = -1;
    return ::posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv, environ) == 0 ? pid : -1;
}

TEST(RealAdb, KillOtherAdbStopsTheServerButSparesItsCaller) {
    if (::access(AndGetAdbFullpath(), X_OK) != 0) GTEST_SKIP() << "no adb tool at " << AndGetAdbFullpath();
    if (std::getenv("WRENLINK_OWN_PID_NAMESPACE") == nullptr) GTEST_SKIP() << "stops processes by name: only in a PID namespace of its own";
    const wrenlink::test::TempTree home;
    const uint16_t port = wrenlink::test::free_loopback_port();
    ::setenv("HOME", home.root().c_str(), 1);
    ::setenv("ANDROID_ADB_SERVER_PORT", std::to_string(port).c_str(), 1);
    ASSERT_EQ(AdbRestartAdb(), 0);
    ASSERT_TRUE(wrenlink::test::listens(port));
    const pid_t named = start_sleeper("adb-sleeper");
    const pid_t other = start_sleeper("sleeper");
    ASSERT_GT(named, 0);
    ASSERT_GT(other, 0);

    EXPECT_EQ(AdbKillOtherADB(), 0);

    int status = 0;
    ASSERT_EQ(::waitpid(named, &status, 0), named);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    EXPECT_EQ(::waitpid(other, &status, WNOHANG), 0);  // no "adb" in its line: still there
    ::kill(other, SIGKILL);
    ::waitpid(other, &status, 0);
    // The server has gone (its port closes as the process ends).
    for (int i = 0; i < 100 && wrenlink::test::listens(port); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(wrenlink::test::listens(port));
}

}  // namespace
