// The public interface of the shared library against the reference agent program, over real
// sockets: remote files byte for byte and the media lists against the files. The demo's run
// against the agent goes the other main roads (a scan, paths, a copy).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "Wrenlink/Wrenlink.h"
#include "agent_process.h"
#include "doubles/media_list.h"
#include "doubles/temp_tree.h"

namespace wrenlink::e2e {
namespace {

namespace fs = std::filesystem;

class EndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        tree.write("DCIM/Camera/IMG_0001.jpg", std::string(3000, 'j'));
        tree.write("DCIM/Camera/IMG_0002.JPG", std::string(10, 'k'));
        tree.write("DCIM/Camera/VID_0003.mp4", std::string(5000, 'v'));
        tree.write("Pictures/shot.png", "png");
        tree.write("Music/Album/01 Song.mp3", std::string(700, 'm'));
        tree.write("Download/paper.pdf", "pdf");
        conn = NetConnectionOpen("127.0.0.1", agent.port());
        ASSERT_NE(conn, nullptr);
    }
    void TearDown() override { NetConnectionClose(conn); }

    test::TempTree tree;
    AgentProcess agent{tree.root()};
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
            ASSERT_EQ(buffer, model.substr(static_cast<std::size_t>(offset), buffer.size())) << "at " << offset;
        }
    }
    // Seeking from the end and from the current place.
    ASSERT_EQ(NFCFileRefSeek(conn, ref, -100, 2), 0u);
    ASSERT_EQ(NFCFileRefSeek(conn, ref, 40, 1), 0u);
    char tail[100];
    int32_t length = sizeof tail;
    ASSERT_EQ(NFCFileRefRead(conn, ref, tail, &length), 0u);
    EXPECT_EQ(std::string(tail, static_cast<std::size_t>(length)), model.substr(model.size() - 60));
    EXPECT_EQ(NFCFileRefClose(conn, ref), 0u);
    EXPECT_EQ(tree.read("Download/data.bin"), model) << "the file on disk is what was written";
}

// Each list's paths; the records of the images are checked against the files.
std::vector<std::string> listed(NetConnection *conn, AgentStatus (*lister)(NetConnection *, __MediaBean *, uint32_t *),
                                const test::TempTree *check = nullptr) {
    __MediaBean head{};
    uint32_t count = 0;
    EXPECT_EQ(lister(conn, &head, &count), 0u);
    std::vector<std::string> paths;
    for (const __MediaBean *b = head.next; b != nullptr; b = b->next) {
        const std::string path = b->text1, name = b->text2;  // packed: read by value
        const uint64_t size = b->value2, mtime = b->value3;
        paths.push_back(path);
        struct stat st {};
        if (check == nullptr || ::stat((check->root() / path.substr(1)).c_str(), &st) != 0) continue;
        EXPECT_EQ(size, static_cast<uint64_t>(st.st_size)) << path;
        EXPECT_EQ(mtime, static_cast<uint64_t>(st.st_mtime)) << path;
        EXPECT_EQ(name, fs::path(path).filename().string());
    }
    test::free_media_list(head.next);
    EXPECT_EQ(paths.size(), count);
    return paths;
}

TEST_F(EndToEnd, MediaListsMatchTheTree) {
    EXPECT_EQ(listed(conn, NMCListImages, &tree),
              (std::vector<std::string>{"/DCIM/Camera/IMG_0001.jpg", "/DCIM/Camera/IMG_0002.JPG", "/Pictures/shot.png"}));
    EXPECT_EQ(listed(conn, NMCListMusics), std::vector<std::string>{"/Music/Album/01 Song.mp3"});
    EXPECT_EQ(NMCDelIVideo(conn, "/DCIM/Camera/VID_0003.mp4"), 0u);
    EXPECT_EQ(listed(conn, NMCListVideo), std::vector<std::string>{});
    EXPECT_EQ(NMCAddIVideo(conn, "/DCIM/Camera/VID_0003.mp4"), 0u);
    EXPECT_EQ(listed(conn, NMCListVideo), std::vector<std::string>{"/DCIM/Camera/VID_0003.mp4"});
}

}  // namespace
}  // namespace wrenlink::e2e
