// The reference agent's path operations, directory listing and the confinement to its root.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>

#include "base/crc.h"
#include "agent/wire/packets.h"
#include "harness.h"
#include "phone_path.h"
#include "sandbox.h"

namespace wrenlink::test {
namespace {

namespace fs = std::filesystem;
using wire::load_u32;
using wire::load_u64;

constexpr uint32_t kRefused = static_cast<uint32_t>(EACCES);

class AgentPaths : public ::testing::Test {
protected:
    void SetUp() override {
        tree.write("DCIM/Camera/a.jpg", "jpeg!");
        conn = agent.connect();
        ASSERT_NE(conn, nullptr);
    }
    void TearDown() override { NetConnectionClose(conn); }

    uint32_t status_of(const std::string &packet) {
        const AgentReply r = roundtrip(conn, packet);
        EXPECT_TRUE(r.complete);
        return r.header.status;
    }

    TempTree outside;  // a neighbour of the root that must never be touched
    TempTree tree;
    InProcessAgent agent{tree.root()};
    NetConnection *conn = nullptr;
};

TEST_F(AgentPaths, StatReportsModeSizeAndTimeWithACrc) {
    ASSERT_EQ(::truncate(tree.host("DCIM/Camera/a.jpg").c_str(), 123456), 0);
    struct stat st {};
    ASSERT_EQ(::stat(tree.host("DCIM/Camera/a.jpg").c_str(), &st), 0);
    AgentReply r = roundtrip(conn, make_file_stat_packet("/DCIM/Camera/a.jpg"));
    ASSERT_EQ(r.header.status, 0u);
    ASSERT_EQ(r.payload.size(), 20u);
    EXPECT_EQ(r.header.crc, get_crc32(r.payload.data(), 20, 0));
    EXPECT_TRUE(S_ISREG(load_u32(r.payload.data())));
    EXPECT_EQ(load_u64(r.payload.data() + 4), 123456u);
    EXPECT_EQ(static_cast<int64_t>(load_u64(r.payload.data() + 12)), static_cast<int64_t>(st.st_mtime));

    r = roundtrip(conn, make_file_stat_packet("/DCIM"));
    EXPECT_TRUE(S_ISDIR(load_u32(r.payload.data())));
    r = roundtrip(conn, make_file_stat_packet("/none"));
    EXPECT_EQ(r.header.status, static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(r.header.length, 0u);
}

// Entries of a read-directory reply: mode, size, mtime, name and its NUL, one after the other.
std::vector<std::pair<std::string, uint32_t>> entries_of(const std::string &payload) {
    std::vector<std::pair<std::string, uint32_t>> out;
    std::size_t at = 0;
    while (at + 20 < payload.size()) {
        const uint32_t mode = load_u32(payload.data() + at);
        const std::size_t nul = payload.find('\0', at + 20);
        if (nul == std::string::npos) break;
        out.emplace_back(payload.substr(at + 20, nul - at - 20), mode);
        at = nul + 1;
    }
    EXPECT_EQ(at, payload.size()) << "entries must end exactly with the payload";
    return out;
}

TEST_F(AgentPaths, DirectoriesAreListedInBatchesUntilAnEmptyReply) {
    for (int i = 0; i < 1500; ++i) tree.write("Many/file-" + std::to_string(10000 + i) + ".txt", "x");
    fs::create_directory(tree.host("Many/sub"));
    AgentReply r = roundtrip(conn, make_open_dir_packet("/Many"));
    ASSERT_EQ(r.header.status, 0u);
    EXPECT_EQ(r.header.crc, get_crc32(r.payload.data(), 4, 0));
    EXPECT_EQ(load_u32(r.payload.data()), 1501u);

    std::vector<std::pair<std::string, uint32_t>> all;
    int batches = 0;
    for (;;) {
        r = roundtrip(conn, make_read_dir_packet("Many/"));  // the same directory, spelt otherwise
        ASSERT_EQ(r.header.status, 0u);
        ASSERT_EQ(r.header.crc, get_crc32(r.payload.data(), static_cast<uint32_t>(r.payload.size()), 0));
        if (r.payload.empty()) break;
        const auto batch = entries_of(r.payload);
        all.insert(all.end(), batch.begin(), batch.end());
        ++batches;
    }
    EXPECT_GT(batches, 1);
    ASSERT_EQ(all.size(), 1501u);
    EXPECT_EQ(all.front().first, "file-10000.txt");
    EXPECT_TRUE(S_ISREG(all.front().second));
    EXPECT_EQ(all.back().first, "sub");
    EXPECT_TRUE(S_ISDIR(all.back().second));

    EXPECT_EQ(status_of(make_close_dir_packet("/Many")), 0u);
    EXPECT_EQ(status_of(make_read_dir_packet("/Many")), static_cast<uint32_t>(EBADF));
    EXPECT_EQ(status_of(make_close_dir_packet("/Many")), static_cast<uint32_t>(EBADF));
    EXPECT_EQ(status_of(make_open_dir_packet("/DCIM/Camera/a.jpg")), static_cast<uint32_t>(ENOTDIR));
}

TEST_F(AgentPaths, ARequestWithAWrongCrcIsRefusedAndTheConnectionGoesOn) {
    std::string packet = make_file_mkdir_packet("/Music");
    packet[12] ^= 1;
    EXPECT_EQ(status_of(packet), static_cast<uint32_t>(EBADMSG));
    EXPECT_FALSE(tree.exists("Music"));
    EXPECT_EQ(status_of(make_file_mkdir_packet("/Music")), 0u);
}

// Every operation that names a path, as a request for that path.
const std::vector<std::pair<const char *, std::function<std::string(const char *)>>> kPathRequests = {
    {"open r", [](const char *p) { return make_file_open_packet(p, "rb"); }},
    {"open w", [](const char *p) { return make_file_open_packet(p, "wb"); }},
    {"delete", make_file_delete_packet},
    {"mkdir", make_file_mkdir_packet},
    {"access", make_file_acc_packet},
    {"stat", make_file_stat_packet},
    {"open dir", make_open_dir_packet},
    {"erase", make_erase_file_packet},
    {"add image", make_add_image_packet},
};

TEST_F(AgentPaths, NoRequestReachesOutsideTheRoot) {
    outside.write("secret.jpg", "secret");
    outside.write("dir/inner.jpg", "inner");
    const std::vector<std::pair<std::string, fs::path>> links = {
        {"DCIM/link.jpg", outside.host("secret.jpg")},
        {"DCIM/linkdir", outside.host("dir")},
        {"DCIM/dangling.jpg", outside.host("ghost.jpg")},
    };
    const std::string up = "../" + outside.root().filename().string();
    const std::vector<std::string> escapes = {
        "/../secret.jpg", up + "/secret.jpg", "/DCIM/../../" + up.substr(3) + "/secret.jpg",
        "/DCIM/link.jpg", "/DCIM/linkdir/inner.jpg", "/DCIM/linkdir/new.jpg", "/DCIM/dangling.jpg", "/DCIM/linkdir",
    };
    for (const auto &[name, request] : kPathRequests) {
        for (const auto &path : escapes) {
            for (const auto &[link, target] : links)  // put back what a request removed
                if (!tree.exists(link)) fs::create_symlink(target, tree.host(link));
            const uint32_t status = status_of(request(path.c_str()));
            // Delete, erase and mkdir don't follow the last component: on a link's own name they
            // remove the link (never what it points to) or find the name taken.
            const std::string op = name;
            const bool on_a_link = path == "/DCIM/link.jpg" || path == "/DCIM/dangling.jpg" || path == "/DCIM/linkdir";
            if (!on_a_link || (op != "delete" && op != "erase" && op != "mkdir")) {
                EXPECT_EQ(status, kRefused) << op << " " << path;
            }
        }
    }
    EXPECT_EQ(outside.read("secret.jpg"), "secret");
    EXPECT_EQ(outside.read("dir/inner.jpg"), "inner");
    EXPECT_FALSE(outside.exists("ghost.jpg"));
    EXPECT_FALSE(outside.exists("dir/new.jpg"));
    EXPECT_FALSE(outside.exists("new.jpg"));
    EXPECT_EQ(TestPing(conn), 0);
}

TEST_F(AgentPaths, LinksThatStayInsideTheRootAreFollowed) {
    fs::create_symlink("Camera/a.jpg", tree.host("DCIM/alias.jpg"));
    fs::create_symlink(tree.host("DCIM"), tree.host("Pictures"));
    const AgentReply r = roundtrip(conn, make_file_open_packet("/Pictures/alias.jpg", "rb"));
    ASSERT_EQ(r.header.status, 0u);
    const uint32_t id = load_u32(r.payload.data());
    EXPECT_EQ(roundtrip(conn, make_file_read_packet(id, 0, 100)).payload, "jpeg!");
    EXPECT_EQ(status_of(make_file_acc_packet("/Pictures/Camera/../alias.jpg")), 0u);
    // `..` goes by name: it leaves /Pictures, not the directory the link points to.
    EXPECT_EQ(status_of(make_file_acc_packet("/Pictures/../DCIM/Camera/a.jpg")), 0u);
}

// One rule for both tools: the reference agent and the simulated phone read paths through it.
TEST(PhonePaths, NormalFormDropsDotsAndEmptyPartsAndRefusesClimbingOut) {
    const std::pair<const char *, std::optional<std::string>> cases[] = {
        {"//DCIM/./Camera//a.jpg/", "/DCIM/Camera/a.jpg"},
        {"a/b/../../c", "/c"},
        {"", "/"},
        {"...", "/..."},  // a name, not a step up
        {"a/../..", std::nullopt},
        {"/..", std::nullopt},
    };
    for (const auto &[path, normal] : cases) EXPECT_EQ(tools::normal_phone_path(path), normal) << path;
}

}  // namespace
}  // namespace wrenlink::test
