// Debian's adb against simulated phones: what only the command line shows (the banner, the
// interactive shell, the phone's refusals). Transfers, activities, storage, forwards and a phone
// that goes away are proven through the library in library_adb_test.cpp.
#include <set>
#include <sstream>

#include "phone_fixture.h"

namespace wrenlink::test {
namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> words_of(const std::string &text) {
    std::vector<std::string> words;
    std::istringstream in(text);
    std::string w;
    while (in >> w) words.push_back(w);
    return words;
}

TEST_F(PhoneAdbTest, ServerListsEveryPhoneWithTheBannerOfItsProfile) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile, kBetaProfile}));
    const std::string listing = server_->run({"devices", "-l"}).output;
    const auto lines = lines_of(listing);
    ASSERT_EQ(lines.size(), 3u) << listing;
    EXPECT_EQ(lines[0], "List of devices attached");
    // The transport ids are the server's own; the rest comes from each phone's banner.
    std::set<std::string> phones;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        std::string entry;
        for (const auto &w : words_of(lines[i]))
            if (!w.starts_with("transport_id:")) entry += (entry.empty() ? "" : " ") + w;
        phones.insert(entry);
    }
    EXPECT_EQ(phones, (std::set<std::string>{serial(0) + " device product:alphaprod model:Alpha_Phone device:alphadev",
                                             serial(1) + " device product:betaprod model:Beta device:betadev"}));

    // The plain listing, as the library reads it: serial, tab, state.
    const auto plain = lines_of(server_->run({"devices"}).output);
    EXPECT_EQ(std::set<std::string>(plain.begin() + 1, plain.end()),
              (std::set<std::string>{serial(0) + "\tdevice", serial(1) + "\tdevice"}));
}

TEST_F(PhoneAdbTest, ShellAnswersFromTheProfileAndStaysInTheSandbox) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile, kBetaProfile}));
    EXPECT_EQ(shell(0, "getprop ro.product.model"), "Alpha Phone\n");
    EXPECT_EQ(shell(0, "getprop ro.product.manufacturer"), "Alphacorp\n");
    EXPECT_EQ(shell(1, "getprop ro.build.version.release"), "7.1.2\n");
    EXPECT_EQ(shell(0, "getprop no.such.property"), "\n");
    EXPECT_TRUE(holds(shell(0, "getprop"), "[ro.product.device]: [alphadev]\n"));

    EXPECT_TRUE(shell(0, "id").starts_with("uid=2000(shell) gid=2000(shell)"));
    EXPECT_TRUE(shell(0, "su -c id").starts_with("uid=0(root) gid=0(root)"));
    EXPECT_TRUE(holds(shell(1, "su -c id"), "su: not found"));

    // ".." never leaves the phone's "/": a climb above it is refused.
    EXPECT_TRUE(holds(shell(0, "ls /../../.."), "ls: /../../..: Permission denied"));
    const auto root = lines_of(shell(0, "ls /sdcard/.."));
    EXPECT_EQ(std::set<std::string>(root.begin(), root.end()),
              (std::set<std::string>{"data", "proc", "sdcard", "storage", "system"}));
}

TEST_F(PhoneAdbTest, InteractiveShellPromptsAndSuTurnsItIntoARootShell) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile, kBetaProfile, kGammaProfile}));
    const RunResult alpha = adb(0, {"shell"}, "id\nsu\nid\nexit\nexit\n");
    EXPECT_EQ(alpha.status, 0) << alpha.output;
    const auto shell_id = alpha.output.find("uid=2000(shell)");
    const auto root_prompt = alpha.output.find("# ", shell_id);
    const auto root_id = alpha.output.find("uid=0(root)", shell_id);
    EXPECT_TRUE(holds(alpha.output, "$ ")) << alpha.output;
    ASSERT_NE(shell_id, std::string::npos) << alpha.output;
    EXPECT_NE(root_prompt, std::string::npos) << alpha.output;
    EXPECT_NE(root_id, std::string::npos) << alpha.output;
    EXPECT_TRUE(holds(alpha.output, "\r\n")) << "a terminal ends lines with CR LF";

    const RunResult beta = adb(1, {"shell"}, "su\nid\nexit\n");
    EXPECT_TRUE(holds(beta.output, "su: not found")) << beta.output;
    EXPECT_FALSE(holds(beta.output, "uid=0(root)")) << beta.output;
    EXPECT_FALSE(holds(beta.output, "# ")) << beta.output;

    // A daemon running as root: the shell is root's from its first prompt on, and so are pushes.
    const RunResult gamma = adb(2, {"shell"}, "id\nexit\n");
    EXPECT_TRUE(gamma.output.starts_with("# ") || gamma.output.find("# ") < gamma.output.find("uid=0(root)"))
        << gamma.output;
    EXPECT_FALSE(holds(gamma.output, "$ ")) << gamma.output;
    EXPECT_TRUE(holds(gamma.output, "uid=0(root)")) << gamma.output;
    dir_.write("tool", "x");
    EXPECT_EQ(adb(2, {"push", at("tool"), "/system/bin/tool"}).status, 0);
}

TEST_F(PhoneAdbTest, InstallListAndUninstallAPackage) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    const std::string apk = at("com.example.hello.apk");
    const std::string apk_bytes = std::string("PK\x03\x04", 4) + random_bytes(5000, 3);
    dir_.write("com.example.hello.apk", apk_bytes);

    const RunResult install = adb(0, {"install", "-r", apk});
    EXPECT_TRUE(holds(install.output, "Success")) << install.output;
    EXPECT_EQ(dir_.read(sandbox(0) + "/data/app/com.example.hello-1/base.apk"), apk_bytes);
    EXPECT_EQ(shell(0, "pm list packages -3"), "package:com.example.hello\npackage:com.test.notes\n");
    EXPECT_EQ(shell(0, "pm list packages -s"), "package:android\npackage:com.test.launcher\n");
    EXPECT_EQ(shell(0, "pm list packages | grep hello"), "package:com.example.hello\n");
    EXPECT_EQ(shell(0, "pm path com.example.hello | grep package"), "package:/data/app/com.example.hello-1/base.apk\n");
    EXPECT_TRUE(holds(shell(0, "dumpsys package com.test.notes"), "\n    versionName=1.2.3\n"));
    EXPECT_TRUE(holds(shell(0, "dumpsys package com.test.notes"), "Package [com.test.notes]"));
    EXPECT_FALSE(holds(shell(0, "dumpsys package com.none"), "Package ["));

    EXPECT_TRUE(holds(adb(0, {"install", apk}).output, "INSTALL_FAILED_ALREADY_EXISTS"));
    dir_.write("broken.apk", "not a zip");
    EXPECT_TRUE(holds(adb(0, {"install", at("broken.apk")}).output, "INSTALL_PARSE_FAILED_NOT_APK"));

    EXPECT_TRUE(holds(adb(0, {"uninstall", "com.example.hello"}).output, "Success"));
    EXPECT_EQ(shell(0, "pm list packages -3"), "package:com.test.notes\n");
    EXPECT_TRUE(holds(adb(0, {"uninstall", "com.example.hello"}).output, "Failure"));
    EXPECT_TRUE(holds(adb(0, {"uninstall", "android"}).output, "Failure")) << "system packages stay";
}

TEST_F(PhoneAdbTest, FileCommandsKeepTheShellUserOutOfSystemPlaces) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    EXPECT_TRUE(holds(shell(0, "mkdir /data/app/made"), "Permission denied"));
    EXPECT_FALSE(dir_.exists(sandbox(0) + "/data/app/made"));
    EXPECT_EQ(shell(0, "su -c 'mkdir /data/app/made'"), "");
    EXPECT_TRUE(dir_.exists(sandbox(0) + "/data/app/made"));

    EXPECT_EQ(shell(0, "mkdir /sdcard/a && echo x > /dev/null && mv /sdcard/a /sdcard/b && ls /sdcard"), "b\n");
    EXPECT_TRUE(holds(shell(0, "mv /sdcard/none /sdcard/c"), "No such file or directory"));
    EXPECT_TRUE(holds(shell(0, "rmdir -r /sdcard/b"), "Unknown option 'r'")) << "the phone's rmdir has no -r";
    EXPECT_EQ(shell(0, "rmdir /sdcard/b; ls /sdcard"), "");
    EXPECT_TRUE(holds(shell(0, "ls /data/data"), "Permission denied"));
    EXPECT_FALSE(holds(shell(0, "su -c 'ls /data/data'"), "Permission denied"));

    dir_.write(sandbox(0) + "/sdcard/src.bin", random_bytes(10000, 4));
    EXPECT_TRUE(holds(shell(0, "dd if=/sdcard/src.bin of=/data/local/tmp/copy"), "10000 bytes"));
    EXPECT_EQ(dir_.read(sandbox(0) + "/data/local/tmp/copy"), random_bytes(10000, 4));
}

}  // namespace
}  // namespace wrenlink::test
