// Packages on the phone, against the stand-in adb tool.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"

using namespace wrenlink::test;

namespace {

TEST(PackageInstallation, ArgumentsAndVerdicts) {
    struct Case {
        const char *output;
        int32_t result;
    };
    const Case cases[] = {
        {R"(out "Performing Streamed Install\nSuccess\n")", 1},
        {R"(err "error: device not found\n")", 0},
        {R"(out "Failure [DELETE_FAILED_INTERNAL_ERROR]\n" err "package does not exist\n")", 1},
        {R"(err "adb: failed to open /host/my app.apk: Permission denied\n")", 2},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(std::string("always ") + c.output);
        EXPECT_EQ(AdbInstallPackage("S1", "/host/my app.apk"), c.result) << c.output;
        EXPECT_EQ(AdbUninstallPackage("S1", "com.example.app"), c.result) << c.output;
        EXPECT_EQ(adb.runs(), (std::vector<Argv>{tool_argv({"-s", "S1", "install", "-r", "/host/my app.apk"}),
                                                 tool_argv({"-s", "S1", "uninstall", "com.example.app"})}));
    }
}

TEST(PackageLists, RawTextCutAtTheRunnersLimit) {
    FakeAdb adb;
    adb.scenario(R"(when "packages -3" fill 3000 0
when "packages -s" out "package:android\r\npackage:com.android.phone\r\n")");
    char *text = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(AdbListPackege3("S1", &text, &length), 0);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(length, 2047u);
    EXPECT_EQ(std::strlen(text), 2047u);
    EXPECT_EQ(std::string(text, 26), "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    WrenlinkFree(text);

    EXPECT_EQ(AdbListPackegeSys("S1", &text, &length), 0);
    EXPECT_STREQ(text, "package:android\r\npackage:com.android.phone\r\n");
    EXPECT_EQ(length, std::strlen(text));
    WrenlinkFree(text);

    EXPECT_EQ(adb.runs(), (std::vector<Argv>{shell_argv("S1", {"pm", "list", "packages", "-3"}),
                                             shell_argv("S1", {"pm", "list", "packages", "-s"})}));

    adb.scenario("");  // nothing printed: a block with the empty text
    EXPECT_EQ(AdbListPackege3("S1", &text, &length), 0);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(length, 0u);
    WrenlinkFree(text);
}

TEST(AdbCheckPackageApkExist, OnePipelineArgumentAndASetOnlyFlag) {
    FakeAdb adb;
    adb.scenario(R"(when "pm path com.example.app" out "package:/data/app/com.example.app-1/base.apk\n")");
    uint8_t exists = 0;
    EXPECT_EQ(AdbCheckPackageApkExist("S1", "com.example.app", &exists), 0);
    EXPECT_EQ(exists, 1);
    exists = 1;
    EXPECT_EQ(AdbCheckPackageApkExist("S1", "com.other", &exists), 0);
    EXPECT_EQ(exists, 1);  // never cleared
    EXPECT_EQ(adb.runs().front(), shell_argv("S1", {"pm path com.example.app | grep package"}));
}

TEST(AdbCheckAppInstalled, ExactlyOneListedPackage) {
    FakeAdb adb;
    adb.scenario(R"(when "grep com.one" out "package:com.one\r\n"
when "grep com.two" out "package:com.two\r\npackage:com.two.pro\r\n")");
    struct Case {
        const char *name;
        uint8_t flag;
    };
    for (const Case c : {Case{"com.one", 1}, Case{"com.two", 0}, Case{"com.none", 0}}) {
        uint8_t installed = 0;
        EXPECT_EQ(AdbCheckAppInstalled("S1", c.name, &installed), 0) << c.name;
        EXPECT_EQ(installed, c.flag) << c.name;
    }
    EXPECT_EQ(adb.runs().front(), shell_argv("S1", {"pm", "list", "packages", "|", "grep", "com.one"}));
}

TEST(AdbGetPackageProp, ValueBehindTheKey) {
    FakeAdb adb;
    adb.scenario(R"(when "dumpsys package com.example.app" out "Packages:\r\n    versionCode=31 minSdk=21\r\n    versionName=1.2.3\r\n")");
    char value[2048];
    std::memset(value, 'z', sizeof value);
    EXPECT_EQ(AdbGetPackageProp("S1", "com.example.app", "versionName=", value), 0);
    EXPECT_STREQ(value, "1.2.3");
    std::memset(value, 'z', sizeof value);
    EXPECT_EQ(AdbGetPackageProp("S1", "com.example.app", "firstInstallTime=", value), -2);
    EXPECT_EQ(value[0], 'z');
    EXPECT_EQ(adb.runs().front(), shell_argv("S1", {"dumpsys", "package", "com.example.app"}));
}

}  // namespace
