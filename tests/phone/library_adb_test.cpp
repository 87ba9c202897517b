// The library's adb half through Debian's adb against simulated phones: what an application gets
// from the exported operations when a (simulated) phone is really there. The binary lives in a
// folder whose Resources/adb is /usr/bin/adb, so the library runs the real tool; the fixture's
// private server port reaches the tool through the environment.
#include <set>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "e2e/agent_process.h"
#include "phone_fixture.h"

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

}  // namespace
}  // namespace wrenlink::test
