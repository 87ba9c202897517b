// Debian's adb against simulated phones: what the library's command lines will meet.
#include <sys/socket.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <thread>

#include "Wrenlink/fd.h"
#include "Wrenlink/platform.h"
#include "phone_fixture.h"
#include "realadb/loopback_server.h"

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

    // ".." never leaves the phone's "/": the listing is the sandbox's, not the host's.
    const auto root = lines_of(shell(0, "ls /../../.."));
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

TEST_F(PhoneAdbTest, PushAndPullCarryExactBytes) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    const std::vector<std::pair<std::string, std::string>> files = {
        {"empty.bin", ""}, {"small.txt", "five\n"}, {"large.bin", random_bytes(3 * 1024 * 1024 + 17, 9)}};
    for (const auto &[name, content] : files) {
        SCOPED_TRACE(name);
        dir_.write(name, content);
        const RunResult push = adb(0, {"push", at(name), "/sdcard/Download/" + name});
        ASSERT_EQ(push.status, 0) << push.output;
        EXPECT_EQ(dir_.read(sandbox(0) + "/sdcard/Download/" + name), content);
        const RunResult pull = adb(0, {"pull", "/sdcard/Download/" + name, at("back-" + name)});
        ASSERT_EQ(pull.status, 0) << pull.output;
        EXPECT_EQ(dir_.read("back-" + name), content);
    }
    EXPECT_EQ(words_of(shell(0, "ls -l /sdcard/Download/large.bin")).at(4), std::to_string(3 * 1024 * 1024 + 17));

    const RunResult denied = adb(0, {"push", at("small.txt"), "/system/small.txt"});
    EXPECT_NE(denied.status, 0);
    EXPECT_TRUE(holds(denied.output, "Permission denied")) << denied.output;
    const RunResult missing = adb(0, {"pull", "/sdcard/none.bin", at("none.bin")});
    EXPECT_NE(missing.status, 0);
    EXPECT_TRUE(holds(missing.output, "does not exist")) << missing.output;
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

TEST_F(PhoneAdbTest, StartedActivityIsTheFocusedOneUntilItsAppIsStopped) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    const std::string focus = "dumpsys activity activities | grep mFocusedActivity";
    const auto focused = [&] {
        const auto lines = lines_of(shell(0, focus));
        return lines.size() == 1 ? lines[0] : "(" + std::to_string(lines.size()) + " lines)";
    };
    EXPECT_TRUE(holds(focused(), "ActivityRecord{")) << focused();
    EXPECT_TRUE(holds(focused(), " u0 com.test.launcher/.Home t")) << focused();

    EXPECT_EQ(shell(0, "am start -n com.test.notes/.Main"), "Starting: Intent { cmp=com.test.notes/.Main }\n");
    EXPECT_TRUE(holds(focused(), " u0 com.test.notes/.Main t")) << focused();

    const std::string unknown = shell(0, "am start -n com.none/.Main");
    EXPECT_TRUE(holds(unknown, "Starting: Intent { cmp=com.none/.Main }"));
    EXPECT_TRUE(holds(unknown, "Error: Activity class {com.none/com.none.Main} does not exist."));
    EXPECT_TRUE(holds(focused(), "com.test.notes/.Main")) << "a failed start changes nothing";

    EXPECT_EQ(shell(0, "am force-stop  com.test.notes"), "");
    EXPECT_TRUE(holds(focused(), "com.test.launcher/.Home")) << focused();
}

TEST_F(PhoneAdbTest, StorageIsListedAndMeasuredFromTheProfile) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    EXPECT_FALSE(holds(shell(0, "ls -l /sdcard"), "No such file or directory"));
    EXPECT_TRUE(holds(shell(0, "ls -l /sdcard0"), "No such file or directory"));
    const auto words = words_of(shell(0, "df /sdcard | grep / "));
    ASSERT_EQ(words.size(), 6u);
    EXPECT_EQ(words[0], "/dev/fuse");
    EXPECT_EQ(words[1], "8000000");
    EXPECT_EQ(words[3], "5000000") << "available KiB: size less used";
    EXPECT_EQ(words[5], "/sdcard");
    EXPECT_TRUE(holds(shell(0, "df /nowhere"), "No such file or directory"));
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

// A listener that reads one request of a known size and answers with its bytes reversed.
class ReversingListener {
public:
    explicit ReversingListener(std::size_t request_size) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        ::bind(fd_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address);
        ::listen(fd_.get(), 1);
        ::getsockname(fd_.get(), reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this, request_size] {
            UniqueFd c(::accept(fd_.get(), nullptr, nullptr));
            std::string request;
            char buffer[65536];
            while (c && request.size() < request_size) {
                const ssize_t n = ::recv(c.get(), buffer, sizeof buffer, 0);
                if (n <= 0) return;
                request.append(buffer, static_cast<std::size_t>(n));
            }
            const std::string reply(request.rbegin(), request.rend());
            ::send(c.get(), reply.data(), reply.size(), platform::send_flags());
        });
    }
    ~ReversingListener() {
        ::shutdown(fd_.get(), SHUT_RDWR);
        thread_.join();
    }
    unsigned port() const { return port_; }

private:
    UniqueFd fd_;
    unsigned port_ = 0;
    std::thread thread_;
};

std::string exchange_through(unsigned port, const std::string &request, std::size_t reply_size) {
    UniqueFd c(::socket(AF_INET, SOCK_STREAM, 0));
    const timeval limit{20, 0};
    ::setsockopt(c.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const sockaddr_in to = loopback(static_cast<uint16_t>(port));
    if (::connect(c.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0) return "(no connection)";
    if (!request.empty()) ::send(c.get(), request.data(), request.size(), platform::send_flags());
    std::string reply;
    char buffer[65536];
    while (reply.size() < reply_size || reply_size == 0) {
        const ssize_t n = ::recv(c.get(), buffer, sizeof buffer, 0);
        if (n <= 0) break;
        reply.append(buffer, static_cast<std::size_t>(n));
    }
    return reply;
}

TEST_F(PhoneAdbTest, ForwardCarriesAConversationToALoopbackPortBothWays) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    // Larger than one transport message each way, so that flow control has work to do.
    const std::string request = random_bytes(600 * 1024, 5);
    ReversingListener listener(request.size());
    const unsigned local = free_loopback_port();
    const RunResult forward = adb(0, {"forward", "tcp:" + std::to_string(local), "tcp:" + std::to_string(listener.port())});
    ASSERT_EQ(forward.status, 0) << forward.output;
    EXPECT_EQ(exchange_through(local, request, request.size()), std::string(request.rbegin(), request.rend()));

    // A phone port where nothing listens: the forwarded connection is closed at once.
    const unsigned nowhere = free_loopback_port();
    const unsigned local2 = free_loopback_port();
    ASSERT_EQ(adb(0, {"forward", "tcp:" + std::to_string(local2), "tcp:" + std::to_string(nowhere)}).status, 0);
    EXPECT_EQ(exchange_through(local2, "hello", 0), "");
}

TEST_F(PhoneAdbTest, PhoneThatGoesAwayIsNoLongerADevice) {
    dir_.write("a.prop", kAlphaProfile);
    dir_.write("b.prop", kBetaProfile);
    PhoneProcess leaving({{at("a.prop"), at("a")}});
    PhoneProcess staying({{at("b.prop"), at("b")}});
    ASSERT_TRUE(leaving.ok() && staying.ok());
    ASSERT_TRUE(server_->connect(leaving.serial(0)));
    ASSERT_TRUE(server_->connect(staying.serial(0)));

    leaving.stop();
    // The server notices the closed connection by itself; poll its list until it has.
    std::string listing;
    for (int i = 0; i < 200; ++i) {
        listing = server_->run({"devices"}).output;
        if (!holds(listing, leaving.serial(0) + "\tdevice")) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_FALSE(holds(listing, leaving.serial(0) + "\tdevice")) << listing;
    EXPECT_TRUE(holds(listing, staying.serial(0) + "\tdevice")) << listing;
    EXPECT_EQ(server_->run({"-s", staying.serial(0), "shell", "getprop ro.product.model"}).output, "Beta\n");
    EXPECT_TRUE(holds(server_->run({"-s", leaving.serial(0), "shell", "id"}).output, "error"));
}

}  // namespace
}  // namespace wrenlink::test
