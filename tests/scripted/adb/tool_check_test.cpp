// What the runner does with a tool that is missing, not executable (it is made so), or can't be
// started. This binary has a folder of its own, so its tests may put anything at Resources/adb.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
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
    void remove_tool() const { ::unlink(tool_.c_str()); }
    // A tool run and a root shell each see a run without output, and the complaint is printed.
    void expect_empty_text_and_complaint(const std::string &complaint) const {
        CaptureStderr();
        std::string output(16, 'x');
        EXPECT_EQ(AdbCommand(" devices", output.data(), 16, true), 0);
        EXPECT_EQ(output[0], '\0');
        EXPECT_EQ(wrenlink::test::root_text("ls"), "");
        const std::string complaints = GetCapturedStderr();
        EXPECT_NE(complaints.find(complaint), std::string::npos) << complaints;
        EXPECT_TRUE(adb_.runs().empty());
    }

    const std::string tool_ = AndGetAdbFullpath();
    FakeAdb adb_;
};

TEST_F(ToolCheck, MissingToolGivesTheEmptyTextAndOneComplaint) {
    expect_empty_text_and_complaint("File " + tool_ + " was not found!\n");
}

TEST_F(ToolCheck, ToolWithoutExecutePermissionIsMadeExecutable) {
    std::filesystem::copy_file(FakeAdb::built(), tool_);
    ::chmod(tool_.c_str(), 0640);
    adb_.scenario(R"(always out "ran")");
    EXPECT_EQ(adb_text(" x"), "ran");
    struct stat info {};
    ASSERT_EQ(::stat(tool_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0751u);
}

TEST_F(ToolCheck, ToolThatCannotBeStartedIsReported) {
    std::ofstream(tool_) << "this is no program\n";
    ::chmod(tool_.c_str(), 0755);
    expect_empty_text_and_complaint("launch of " + tool_ + " failed: ");
}

}  // namespace
