// The root shell and the root question against the stand-in tool's interactive shell.
#include <gtest/gtest.h>

#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/tool_runs.h"

using wrenlink::test::Argv;
using wrenlink::test::FakeAdb;
using wrenlink::test::root_text;

namespace {

const std::string kSu("su\r\n\0", 5);  // with its terminator

TEST(AdbRootShell, AsksForRootWhenThePromptIsNotRoot) {
    FakeAdb adb;
    adb.scenario(R"(on "ls /data" out "app\r\nlocal\r\n")");
    EXPECT_EQ(root_text("ls /data"), "app\r\nlocal\r\n# ");
    EXPECT_EQ(adb.shell_input(), kSu + "ls /data");
    EXPECT_FALSE(wrenlink::test::zombie_child_left());
}

TEST(AdbRootShell, KeepsOnlyTheFirstBurstAndAtMost2047Bytes) {
    FakeAdb adb;
    adb.scenario(R"(prompt "# "
on slow out "first\n" sleep 3000 out "second\n"
on big fill 5000 0)");
    EXPECT_EQ(root_text("slow"), "first\n");
    const std::string big = root_text("big");
    ASSERT_EQ(big.size(), 2047u);
    EXPECT_EQ(big.substr(0, 30), "ABCDEFGHIJKLMNOPQRSTUVWXYZABCD");
    // The rest of a first text longer than the buffer is dropped, not read as the command's answer.
    adb.scenario("prompt \"# " + std::string(2100, 'p') + "\"\non ls out \"listing\"");
    EXPECT_EQ(root_text("ls").substr(0, 9), "listing# ");
}

TEST(AdbIsAdbRoot, ReadsTheIdOfThePhonesShell) {
    FakeAdb adb;
    adb.scenario(R"(when "-s ROOT shell id" out "uid=0(root) gid=0(root)\n"
when "-s USER shell id" out "uid=2000(shell) gid=2000(shell)\n"
when "-s GONE shell id" err "error: device not found\n")");
    uint8_t isRoot = 7;
    EXPECT_EQ(AdbIsAdbRoot("ROOT", &isRoot), 0);
    EXPECT_EQ(isRoot, 1);
    EXPECT_EQ(AdbIsAdbRoot("USER", &isRoot), 0);
    EXPECT_EQ(isRoot, 0);
    isRoot = 7;
    EXPECT_EQ(AdbIsAdbRoot("GONE", &isRoot), 1);
    EXPECT_EQ(isRoot, 7);  // not stored
    EXPECT_EQ(adb.runs().front(), (Argv{FakeAdb::tool(), "-s", "ROOT", "shell", "id"}));

    EXPECT_EQ(AdbIsAdbRoot(nullptr, &isRoot), -1);
    EXPECT_EQ(adb.runs().size(), 3u);
}

}  // namespace
