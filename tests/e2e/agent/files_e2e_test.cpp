// Remote files, paths and the media catalogue through the public interface, against the reference
// agent program over real sockets.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <set>

#include "Wrenlink/Wrenlink.h"
#include "agent_process.h"
#include "doubles/media_list.h"

namespace wrenlink::e2e {
namespace {

namespace fs = std::filesystem;

class EndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        conn = NetConnectionOpen("127.0.0.1", agent.port());
        ASSERT_NE(conn, nullptr);
    }
    void TearDown() override { NetConnectionClose(conn); }

    static test::TempTree &fill(test::TempTree &t) {
        t.write("DCIM/Camera/IMG_0001.jpg", std::string(3000, 'j'));
        t.write("DCIM/Camera/IMG_0002.JPG", std::string(10, 'k'));
        t.write("DCIM/Camera/VID_0003.mp4", std::string(5000, 'v'));
        t.write("Pictures/shot.png", "png");
        t.write("Music/Album/01 Song.mp3", std::string(700, 'm'));
        t.write("Music/Album/02 Song.flac", "flac");
        t.write("Movies/film.mkv", "mkv");
        t.write("Download/paper.pdf", "pdf");
        return t;
    }

    test::TempTree tree;
    AgentProcess agent{fill(tree).root()};
    NetConnection *conn = nullptr;
};

std::string random_bytes(std::mt19937 &rng, std::size_t n) {
    std::string s(n, '\0');
    for (char &c : s) c = static_cast<char>(rng());
    return s;
}

TEST_F(EndToEnd, RandomReadsWritesAndSeeksMatchTheServedFileByteForByte) {
    std::mt19937 rng(20240612);
    std::string model = random_bytes(rng, 300 * 1000);
    tree.write("Download/data.bin", model);

    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/Download/data.bin", "r+b", &ref), 0u);
    ASSERT_NE(ref, nullptr);
    for (int i = 0; i < 300; ++i) {
        const auto offset = static_cast<int64_t>(rng() % model.size());
        ASSERT_EQ(NFCFileRefSeek(conn, ref, offset, 0), 0u);
        int64_t at = -1;
        ASSERT_EQ(NFCFileRefTell(conn, ref, &at), 0u);
        ASSERT_EQ(at, offset);
        if (rng() % 4 == 0) {
            const std::string data = random_bytes(rng, rng() % 20000);
            ASSERT_EQ(NFCFileRefWrite(conn, ref, data.data(), static_cast<int32_t>(data.size())), 0u);
            model.resize(std::max(model.size(), static_cast<std::size_t>(offset) + data.size()));
            model.replace(static_cast<std::size_t>(offset), data.size(), data);
        } else {
            std::string buffer(rng() % 70000, '\0');
            auto length = static_cast<int32_t>(buffer.size());
            ASSERT_EQ(NFCFileRefRead(conn, ref, buffer.data(), &length), 0u);
            buffer.resize(static_cast<std::size_t>(length));
            ASSERT_EQ(buffer, model.substr(static_cast<std::size_t>(offset), buffer.size()))
                << "read of " << buffer.size() << " at " << offset;
        }
    }
    // Seeking from the end and from the current place.
    ASSERT_EQ(NFCFileRefSeek(conn, ref, -100, 2), 0u);
    int64_t at = -1;
    ASSERT_EQ(NFCFileRefTell(conn, ref, &at), 0u);
    EXPECT_EQ(at, static_cast<int64_t>(model.size()) - 100);
    ASSERT_EQ(NFCFileRefSeek(conn, ref, 40, 1), 0u);
    char tail[100];
    int32_t length = sizeof tail;
    ASSERT_EQ(NFCFileRefRead(conn, ref, tail, &length), 0u);
    EXPECT_EQ(std::string(tail, static_cast<std::size_t>(length)), model.substr(model.size() - 60));
    EXPECT_EQ(NFCFileRefClose(conn, ref), 0u);
    EXPECT_EQ(tree.read("Download/data.bin"), model) << "the file on disk is what was written";
}

TEST_F(EndToEnd, PathOperationsCreateTestAndRemove) {
    EXPECT_EQ(NFCFileRefMkDir(conn, "/Documents"), 0u);
    EXPECT_EQ(NFCFileRefMkDir(conn, "/Documents"), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(NFCFileRefMkDir(conn, "/Nowhere/deeper"), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(NFCFileRefDelete(conn, "/"), static_cast<uint32_t>(EACCES)) << "the root itself stays";
    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/Documents/new.txt", "w", &ref), 0u);
    ASSERT_EQ(NFCFileRefWrite(conn, ref, "written", 7), 0u);
    ASSERT_EQ(NFCFileRefClose(conn, ref), 0u);
    EXPECT_EQ(tree.read("Documents/new.txt"), "written");
    EXPECT_EQ(NFCFileRefAccess(conn, "/Documents/new.txt"), 0u);
    EXPECT_EQ(NFCFileRefDelete(conn, "/Documents"), static_cast<uint32_t>(ENOTEMPTY));
    EXPECT_EQ(NFCFileRefDelete(conn, "/Documents/new.txt"), 0u);
    EXPECT_EQ(NFCFileRefAccess(conn, "/Documents/new.txt"), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(NFCFileRefDelete(conn, "/Documents"), 0u);
    EXPECT_FALSE(fs::exists(tree.root() / "Documents"));
    EXPECT_EQ(NFCFileRefOpen(conn, "/Documents/new.txt", "rb", &ref), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(ref, nullptr);
}

struct Listed {
    std::string path, name, mime;
    uint64_t size, mtime;
    uint32_t id;
};

std::vector<Listed> take(__MediaBean &head) {
    std::vector<Listed> out;
    for (const __MediaBean *b = head.next; b != nullptr; b = b->next)
        out.push_back(Listed{b->text1, b->text2, b->text3, b->value2, b->value3, b->value1});
    wrenlink::test::free_media_list(head.next);
    head.next = nullptr;
    return out;
}

std::vector<Listed> list(NetConnection *conn, AgentStatus (*lister)(NetConnection *, __MediaBean *, uint32_t *)) {
    __MediaBean head{};
    uint32_t count = 0;
    EXPECT_EQ(lister(conn, &head, &count), 0u);
    auto items = take(head);
    EXPECT_EQ(items.size(), count);
    return items;
}

std::vector<std::string> paths(const std::vector<Listed> &items) {
    std::vector<std::string> out;
    for (const auto &i : items) out.push_back(i.path);
    return out;
}

TEST_F(EndToEnd, MediaListsMatchTheTree) {
    const auto images = list(conn, NMCListImages);
    EXPECT_EQ(paths(images), (std::vector<std::string>{"/DCIM/Camera/IMG_0001.jpg", "/DCIM/Camera/IMG_0002.JPG",
                                                        "/Pictures/shot.png"}));
    EXPECT_EQ(paths(list(conn, NMCListMusics)),
              (std::vector<std::string>{"/Music/Album/01 Song.mp3", "/Music/Album/02 Song.flac"}));
    EXPECT_EQ(paths(list(conn, NMCListVideo)), (std::vector<std::string>{"/DCIM/Camera/VID_0003.mp4", "/Movies/film.mkv"}));
    for (const auto &item : images) {
        struct stat st {};
        ASSERT_EQ(::stat((tree.root() / item.path.substr(1)).c_str(), &st), 0);
        EXPECT_EQ(item.size, static_cast<uint64_t>(st.st_size)) << item.path;
        EXPECT_EQ(item.mtime, static_cast<uint64_t>(st.st_mtime)) << item.path;
        EXPECT_EQ(item.name, fs::path(item.path).filename().string());
    }
    EXPECT_EQ(images[0].mime, "image/jpeg");
    EXPECT_EQ(images[2].mime, "image/png");

    // Ids are distinct and stay with their path; files written since show at the next list.
    tree.write("DCIM/Camera/IMG_0000.jpg", "new");
    const auto again = list(conn, NMCListImages);
    ASSERT_EQ(again.size(), 4u);
    EXPECT_EQ(again[0].path, "/DCIM/Camera/IMG_0000.jpg");
    std::set<uint32_t> ids;
    for (const auto &i : again) ids.insert(i.id);
    EXPECT_EQ(ids.size(), 4u);
    EXPECT_EQ(again[1].id, images[0].id);
}

TEST_F(EndToEnd, AddAndDelChangeTheSharedCatalogueButNeverTheFiles) {
    EXPECT_EQ(NMCDelImage(conn, "/Pictures/shot.png"), 0u);
    EXPECT_EQ(NMCDelImage(conn, "/Pictures/shot.png"), static_cast<uint32_t>(ENOENT));
    EXPECT_TRUE(fs::exists(tree.root() / "Pictures/shot.png"));
    EXPECT_EQ(NMCAddMusic(conn, "/Pictures/shot.png"), 0u) << "any regular file may be added";
    EXPECT_EQ(NMCAddMusic(conn, "Pictures//shot.png"), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(paths(list(conn, NMCListMusics)),
              (std::vector<std::string>{"/Music/Album/01 Song.mp3", "/Music/Album/02 Song.flac", "/Pictures/shot.png"}));
    EXPECT_EQ(NMCAddImage(conn, "/Pictures/shot.png"), 0u) << "a deleted item comes back";
    EXPECT_EQ(list(conn, NMCListImages).size(), 3u);
    EXPECT_EQ(NMCAddIVideo(conn, "/Movies/none.mp4"), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(NMCAddIVideo(conn, "/Movies"), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(NMCDelIVideo(conn, "/Download/paper.pdf"), static_cast<uint32_t>(ENOENT));
    NetConnection *other = NetConnectionOpen("127.0.0.1", agent.port());
    EXPECT_EQ(NMCDelIVideo(other, "/Movies/film.mkv"), 0u);
    NetConnectionClose(other);
    EXPECT_EQ(paths(list(conn, NMCListVideo)), std::vector<std::string>{"/DCIM/Camera/VID_0003.mp4"});
}

TEST(AgentProgram, LogsOneLinePerRequestAndStopsCleanlyOnSigint) {
    test::TempTree tree;
    tree.write("a.txt", "a");
    AgentProcess agent(tree.root(), {"--verbose"});
    NetConnection *first = NetConnectionOpen("127.0.0.1", agent.port());
    NetConnection *second = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_EQ(TestPing(first), 0);
    EXPECT_EQ(NFCFileRefAccess(second, "/a.txt"), 0u);
    EXPECT_EQ(NFCFileRefAccess(first, "/b.txt"), static_cast<uint32_t>(ENOENT));
    // Both connections stay open: the agent must end them itself.
    EXPECT_EQ(agent.stop(SIGINT), 0);
    const std::string log = agent.log();
    EXPECT_NE(log.find("#1 ping -> 0\n"), std::string::npos) << log;
    EXPECT_NE(log.find("#2 access /a.txt -> 0\n"), std::string::npos) << log;
    EXPECT_NE(log.find("#1 access /b.txt -> 2 (No such file or directory)\n"), std::string::npos) << log;
    EXPECT_NE(log.find("SIGINT, stopping"), std::string::npos) << log;
    EXPECT_NE(TestPing(first), 0);
    NetConnectionClose(first);
    NetConnectionClose(second);
}

}  // namespace
}  // namespace wrenlink::e2e
