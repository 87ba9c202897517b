// What the runner does with a tool that is missing, can't be made executable, or can't be
// started. This binary has a folder of its own, so its tests may put anything at Resources/adb.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/tool_runs.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using wrenlink::test::adb_text;
using wrenlink::test::FakeAdb;

namespace {

class ToolCheck : public ::testing::Test {
protected:
    void SetUp() override {
        ::mkdir(tool_.substr(0, tool_.rfind('/')).c_str(), 0755);
        remove_tool();
    }
    void TearDown() override { remove_tool(); }
    void remove_tool() const {
        ::unlink(tool_.c_str());
        ::rmdir(tool_.c_str());
    }
    void put_tool(const std::string &bytes, mode_t mode) const {
        const int fd = ::open(tool_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        ::fchmod(fd, mode);
        ::close(fd);
    }
    // Every operation kind sees a run without output.
    void expect_empty_text_everywhere() const {
        std::string output(16, 'x');
        EXPECT_EQ(AdbCommand(" devices", output.data(), 16, true), 0);
        EXPECT_EQ(output[0], '\0');
        char shell[wrenlink::adb::kOutputSize];
        std::memset(shell, 'x', sizeof shell);
        EXPECT_EQ(AdbShellCommand("SER", "ls", shell, true), 1);
        EXPECT_EQ(shell[0], 'x');
        uint8_t isRoot = 7;
        EXPECT_EQ(AdbIsAdbRoot("SER", &isRoot), 0);
        EXPECT_EQ(isRoot, 0);
        EXPECT_EQ(AdbRootShell(nullptr, "ls", shell), 0);
        EXPECT_EQ(shell[0], '\0');
    }

    const std::string tool_ = AndGetAdbFullpath();
    FakeAdb adb_;
};

TEST_F(ToolCheck, MissingToolGivesTheEmptyTextAndOneComplaint) {
    CaptureStderr();
    expect_empty_text_everywhere();
    const std::string complaints = GetCapturedStderr();
    EXPECT_NE(complaints.find("File " + tool_ + " was not found!\n"), std::string::npos) << complaints;
    EXPECT_TRUE(adb_.runs().empty());
}

TEST_F(ToolCheck, ToolWithoutExecutePermissionIsMadeExecutable) {
    std::ifstream built(FakeAdb::built(), std::ios::binary);
    std::ostringstream program;
    program << built.rdbuf();
    put_tool(program.str(), 0640);
    adb_.scenario(R"(always out "ran")");
    EXPECT_EQ(adb_text(" x"), "ran");
    struct stat info {};
    ASSERT_EQ(::stat(tool_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0751u);
}

TEST_F(ToolCheck, ToolThatCannotBeMadeExecutableIsNotRun) {
    // The kernel refuses mode changes on a process's own status file, even to root.
    const std::string status = "/proc/" + std::to_string(::getpid()) + "/status";
    struct stat info {};
    if (::stat(status.c_str(), &info) != 0 || ::chmod(status.c_str(), info.st_mode & 07777) == 0) {
        GTEST_SKIP() << "no file here whose mode can't be changed";
    }
    ASSERT_EQ(::symlink(status.c_str(), tool_.c_str()), 0);
    CaptureStderr();
    EXPECT_EQ(adb_text(" x"), "");
    const std::string complaints = GetCapturedStderr();
    EXPECT_NE(complaints.find("File " + tool_ + " is not excutable!\n"), std::string::npos) << complaints;
}

TEST_F(ToolCheck, ToolThatCannotBeStartedIsReported) {
    put_tool("this is no program\n", 0755);
    CaptureStderr();
    expect_empty_text_everywhere();
    const std::string complaints = GetCapturedStderr();
    EXPECT_NE(complaints.find("launch of " + tool_ + " failed: "), std::string::npos) << complaints;
    EXPECT_TRUE(adb_.runs().empty());
}

// A directory passes both checks (its x bit) but can't be started; a link that leads nowhere is
// a missing tool.
TEST_F(ToolCheck, DirectoryOrBrokenLinkAtTheToolsPlaceRunsNothing) {
    ASSERT_EQ(::mkdir(tool_.c_str(), 0755), 0);
    CaptureStderr();
    expect_empty_text_everywhere();
    EXPECT_NE(GetCapturedStderr().find("launch of " + tool_ + " failed: "), std::string::npos);
    ::rmdir(tool_.c_str());

    ASSERT_EQ(::symlink((tool_ + ".gone").c_str(), tool_.c_str()), 0);
    CaptureStderr();
    expect_empty_text_everywhere();
    EXPECT_NE(GetCapturedStderr().find("File " + tool_ + " was not found!\n"), std::string::npos);
    EXPECT_TRUE(adb_.runs().empty());
}

}  // namespace
