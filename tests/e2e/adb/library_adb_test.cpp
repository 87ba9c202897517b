// The library's adb half through Debian's adb against simulated phones: what an application gets
// from the exported operations when a (simulated) phone is really there. The binary lives in a
// folder whose Resources/adb is /usr/bin/adb, so the library runs the real tool; the fixture's
// private server port reaches the tool through the environment.
#include <chrono>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "e2e/agent/agent_process.h"
#include "phone_fixture.h"
#include "e2e/adb/loopback_server.h"

namespace wrenlink::test {
namespace {

// The library must find the real tool where an application keeps it.
class LibraryAdbTest : public PhoneAdbTest {
protected:
    void SetUp() override {
        PhoneAdbTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        ASSERT_EQ(std::string(AndGetAdbFullpath()).substr(std::string(AndGetAdbFullpath()).rfind("/Resources/")),
                  "/Resources/adb");
    }
    // A root-shell line's text, as the library hands it back.
    static std::string root_shell(const std::string &line) {
        char out[2048] = {};
        EXPECT_EQ(AdbRootShell(nullptr, line.c_str(), out), 0);
        return out;
    }
};

TEST_F(LibraryAdbTest, ShellCommandAndRootQuestionReachThePhone) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile, kGammaProfile}));
    char out[2048] = {};
    EXPECT_EQ(AdbShellCommand(serial(0).c_str(), "getprop ro.product.model", out, true), 1);
    EXPECT_STREQ(out, "Alpha Phone\n");

    uint8_t root = 7;
    EXPECT_EQ(AdbIsAdbRoot(serial(0).c_str(), &root), 0);
    EXPECT_EQ(root, 0) << "a shell user's phone";
    EXPECT_EQ(AdbIsAdbRoot(serial(1).c_str(), &root), 0);
    EXPECT_EQ(root, 1) << "a phone whose debug daemon runs as root";

    // This adb words a missing phone as "error: device '<serial>' not found", not as the
    // "error: device not found" the library compares with: the library answers 0 ("not root")
    // with the result 0, instead of 1 ("not found").
    root = 7;
    EXPECT_EQ(AdbIsAdbRoot("127.0.0.1:1", &root), 0);
    EXPECT_EQ(root, 0);
}

TEST_F(LibraryAdbTest, RootShellAsksForSuAndRunsTheLineAsRoot) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    EXPECT_TRUE(holds(root_shell("id\r\n"), "uid=0(root)"));
    root_shell("mkdir /data/app/made\r\n");
    EXPECT_TRUE(dir_.exists(sandbox(0) + "/data/app/made")) << "made as root in a place the shell user may not write";
}

TEST_F(LibraryAdbTest, RootShellOfARootDaemonRunsTheLineAsRoot) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kGammaProfile}));
    const std::string text = root_shell("id\r\n");
    EXPECT_TRUE(holds(text, "uid=0(root)")) << text;
}

TEST_F(LibraryAdbTest, RootShellOfAPhoneWithoutSuRunsTheLineAsTheShellUser) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kBetaProfile}));
    EXPECT_TRUE(holds(root_shell("id\r\n"), "uid=2000(shell)"));
    EXPECT_TRUE(holds(root_shell("mkdir /data/app/made\r\n"), "Permission denied"));
    EXPECT_FALSE(dir_.exists(sandbox(0) + "/data/app/made"));
}

// The agent's part of a scan item: "<size>\t<mtime>\t<MIME>\t<path>".
void collect_path(const char *item, uint64_t user) {
    const std::string text = item;
    reinterpret_cast<std::set<std::string> *>(static_cast<uintptr_t>(user))->insert(text.substr(text.rfind('\t') + 1));
}
void collect_code(uint32_t code, uint64_t user) {
    reinterpret_cast<std::set<std::string> *>(static_cast<uintptr_t>(user))->insert("code " + std::to_string(code));
}

TEST_F(LibraryAdbTest, AgentBehindTheForwardAnswersScansAndServesFiles) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    TempTree storage;
    storage.write("DCIM/a.jpg", random_bytes(70000, 1));
    storage.write("Music/b.wav", "RIFF");
    e2e::AgentProcess agent(storage.root());

    const unsigned local = free_loopback_port();
    EXPECT_EQ(AdbForward(serial(0).c_str(), local, agent.port()), 0);
    NetConnection *conn = NetConnectionOpen("127.0.0.1", local);
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(TestPing(conn), 0);

    // The scan's events come straight from the agent on 127.0.0.1:10244 (see the README).
    std::set<std::string> seen;
    const auto user = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&seen));
    EXPECT_EQ(NDDStartScan(conn, nullptr, collect_path, collect_code, nullptr, user), 0u);
    EXPECT_EQ(seen, (std::set<std::string>{"/DCIM/a.jpg", "/Music/b.wav", "code 0"}));

    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/DCIM/a.jpg", "rb", &ref), 0u);
    std::string copy(80000, '\0');
    int32_t length = static_cast<int32_t>(copy.size());
    ASSERT_EQ(NFCFileRefRead(conn, ref, copy.data(), &length), 0u);
    copy.resize(static_cast<std::size_t>(length));
    EXPECT_EQ(copy, random_bytes(70000, 1));
    EXPECT_EQ(NFCFileRefClose(conn, ref), 0u);
    NetConnectionClose(conn);

    // A forward to a phone port where nothing listens: adb's server takes the connection, and
    // closes it when the phone refuses the stream, so the ping fails.
    const unsigned local2 = free_loopback_port();
    EXPECT_EQ(AdbForward(serial(0).c_str(), local2, free_loopback_port()), 0);
    NetConnection *dead = NetConnectionOpen("127.0.0.1", local2);
    ASSERT_NE(dead, nullptr);
    EXPECT_NE(TestPing(dead), 0);
    NetConnectionClose(dead);
}

// ---- Phones ----------------------------------------------------------------------------------

std::string field(const char (&f)[32]) { return std::string(f, strnlen(f, sizeof f)); }

TEST_F(LibraryAdbTest, PhonesAreListedWithTheirPropertiesAndFollowedWhenOneGoesAway) {
    dir_.write("a.prop", kAlphaProfile);
    dir_.write("b.prop", kBetaProfile);
    PhoneProcess alpha({{at("a.prop"), at("a")}});
    PhoneProcess beta({{at("b.prop"), at("b")}});
    ASSERT_TRUE(alpha.ok() && beta.ok());
    ASSERT_TRUE(server_->connect(alpha.serial(0)) && server_->connect(beta.serial(0)));

    char list[2048] = {};
    EXPECT_EQ(AdbGetDevicesList(list), 0);
    const std::string a = alpha.serial(0) + "-author;", b = beta.serial(0) + "-author;";
    EXPECT_TRUE(std::string(list) == a + b || std::string(list) == b + a) << list;

    PhoneInfo *phones = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
    ASSERT_EQ(count, 2u);
    std::set<std::string> records;
    for (uint32_t i = 0; i < count; ++i) {
        const PhoneInfo &p = phones[i];
        records.insert(field(p.serial) + " " + field(p.productModel) + " " + field(p.manufacturer) + " " +
                       field(p.softVersion) + " " + std::to_string(p.authorized) + std::to_string(p.present));
    }
    WrenlinkFree(phones);
    EXPECT_EQ(records, (std::set<std::string>{alpha.serial(0) + " Alpha Phone Alphacorp 9 11",
                                              beta.serial(0) + " Beta Betacorp 7.1.2 11"}));

    PhoneInfo followed{};
    std::memcpy(followed.serial, beta.serial(0).data(), beta.serial(0).size());
    EXPECT_EQ(AdbRereshDevInfo(&followed), 0);
    EXPECT_EQ(followed.present, 1);
    EXPECT_EQ(followed.authorized, 1);
    EXPECT_EQ(field(followed.productModel), "Beta");

    beta.stop();
    // The server notices the closed connection by itself; ask until it has (bounded).
    for (int i = 0; i < 200 && followed.present; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(AdbRereshDevInfo(&followed), 0);
    }
    EXPECT_EQ(followed.present, 0) << "a phone that went away";
    EXPECT_EQ(field(followed.productModel), "Beta") << "the last properties stay";
}

// ---- Files -----------------------------------------------------------------------------------

TEST_F(LibraryAdbTest, PushAndPullMoveExactBytesBothWays) {
    ASSERT_NO_FATAL_FAILURE(start_phones({kAlphaProfile}));
    const std::string content = random_bytes(1024 * 1024 + 3, 11);
    dir_.write("up.bin", content);
    const std::string phone_dir = sandbox(0) + "/sdcard/Download";

    EXPECT_EQ(AdbPushFile(serial(0).c_str(), at("up.bin").c_str(), "/sdcard/Download/up.bin"), 0);
    EXPECT_EQ(dir_.read(phone_dir + "/up.bin"), content);
    EXPECT_EQ(AdbPushFile(serial(0).c_str(), at("up.bin").c_str(), "/system/up.bin"), 2) << "Permission denied";
    EXPECT_EQ(AdbPushFileEx(serial(0).c_str(), at("up.bin").c_str(), "/sdcard/Download/up2.bin"), 0);
    EXPECT_EQ(dir_.read(phone_dir + "/up2.bin"), content);

    EXPECT_EQ(AdbPullFileEx(serial(0).c_str(), "/sdcard/Download/up.bin", at("down-ex.bin").c_str()), 0);
    EXPECT_EQ(dir_.read("down-ex.bin"), content);

    // The root route: a copy made by root in /data/local/tmp, pulled, then removed.
    EXPECT_EQ(AdbPullFile(serial(0).c_str(), "/sdcard/Download/up.bin", at("down.bin").c_str()), 0);
    EXPECT_EQ(dir_.read("down.bin"), content);
    EXPECT_TRUE(std::filesystem::is_empty(dir_.host(sandbox(0) + "/data/local/tmp"))) << "the copy is removed";

    // A file only root may read: the root route gets it, the direct one does not (and judges
    // nothing either way).
    dir_.write(sandbox(0) + "/data/data/com.test.notes/notes.db", "private");
    EXPECT_EQ(AdbPullFile(serial(0).c_str(), "/data/data/com.test.notes/notes.db", at("notes.db").c_str()), 0);
    EXPECT_EQ(dir_.read("notes.db"), "private");
    EXPECT_EQ(AdbPullFileEx(serial(0).c_str(), "/data/data/com.test.notes/notes.db", at("notes-ex.db").c_str()), 0);
    EXPECT_FALSE(dir_.exists("notes-ex.db"));

    // A phone path that is not there: the closing rm finds no copy.
    EXPECT_EQ(AdbPullFile(serial(0).c_str(), "/sdcard/none.bin", at("none.bin").c_str()), 1);
}

}  // namespace
}  // namespace wrenlink::test
