// The reference agent's media catalogue.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "Wrenlink/crc.h"
#include "Wrenlink/packets.h"
#include "catalogue.h"
#include "harness.h"

namespace wrenlink::test {
namespace {

using wire::load_u32;
using wire::load_u64;

struct Item {
    uint32_t id;
    std::string path;
    uint64_t size;
    std::string name;
    uint64_t mtime;
    std::string mime;
};

// A list payload decoded by its documented layout; fails the test when it does not end exactly.
std::vector<Item> items_of(const std::string &p) {
    std::vector<Item> out;
    std::size_t at = 0;
    auto text = [&](std::string &into) {
        const std::size_t nul = p.find('\0', at);
        if (nul == std::string::npos) return false;
        into = p.substr(at, nul - at);
        at = nul + 1;
        return true;
    };
    while (at < p.size()) {
        Item it{};
        if (at + 4 > p.size()) break;
        it.id = load_u32(p.data() + at);
        at += 4;
        if (!text(it.path) || at + 8 > p.size()) break;
        it.size = load_u64(p.data() + at);
        at += 8;
        if (!text(it.name) || at + 8 > p.size()) break;
        it.mtime = load_u64(p.data() + at);
        at += 8;
        if (!text(it.mime)) break;
        out.push_back(it);
    }
    EXPECT_EQ(at, p.size()) << "the items must end exactly with the payload";
    return out;
}

std::vector<std::string> paths_of(const std::vector<Item> &items) {
    std::vector<std::string> out;
    for (const auto &i : items) out.push_back(i.path);
    return out;
}

class AgentMedia : public ::testing::Test {
protected:
    void SetUp() override {
        tree.write("DCIM/Camera/IMG_1.jpg", "12345");
        tree.write("DCIM/Camera/IMG_2.JPEG", "1");
        tree.write("Pictures/Screenshots/s.png", "png");
        tree.write("Music/song.mp3", "mp3");
        tree.write("Music/cover.jpg", "j");
        tree.write("Movies/clip.mp4", "mp4");
        tree.write("Download/readme.txt", "text");
        tree.write("Download/noext", "x");
        conn = agent.connect();
        ASSERT_NE(conn, nullptr);
    }
    void TearDown() override { NetConnectionClose(conn); }

    std::vector<Item> list(const std::string &packet) {
        const AgentReply r = roundtrip(conn, packet);
        EXPECT_TRUE(r.complete);
        EXPECT_EQ(r.header.status, 0u);
        EXPECT_EQ(r.header.crc, get_crc32(r.payload.data(), static_cast<uint32_t>(r.payload.size()), 0));
        return items_of(r.payload);
    }
    uint32_t status_of(const std::string &packet) { return roundtrip(conn, packet).header.status; }

    TempTree tree;
    InProcessAgent agent{tree.root()};
    NetConnection *conn = nullptr;
};

TEST_F(AgentMedia, EachKindListsItsFilesByExtensionWithTheirValuesAndTexts) {
    const auto images = list(make_list_image_packet());
    EXPECT_EQ(paths_of(images), (std::vector<std::string>{"/DCIM/Camera/IMG_1.jpg", "/DCIM/Camera/IMG_2.JPEG",
                                                           "/Music/cover.jpg", "/Pictures/Screenshots/s.png"}));
    EXPECT_EQ(paths_of(list(make_list_music_packet())), (std::vector<std::string>{"/Music/song.mp3"}));
    EXPECT_EQ(paths_of(list(make_list_video_packet())), (std::vector<std::string>{"/Movies/clip.mp4"}));

    const Item &first = images.front();
    struct stat st {};
    ASSERT_EQ(::stat(tree.host("DCIM/Camera/IMG_1.jpg").c_str(), &st), 0);
    EXPECT_EQ(first.size, 5u);
    EXPECT_EQ(first.mtime, static_cast<uint64_t>(st.st_mtime));
    EXPECT_EQ(first.name, "IMG_1.jpg");
    EXPECT_EQ(first.mime, "image/jpeg");
    EXPECT_EQ(images[3].mime, "image/png");

    // Ids are distinct and stay with their path from one list to the next.
    std::set<uint32_t> ids;
    for (const auto &i : images) ids.insert(i.id);
    EXPECT_EQ(ids.size(), images.size());
    tree.write("DCIM/Camera/IMG_0.jpg", "new");
    const auto again = list(make_list_image_packet());
    ASSERT_EQ(again.size(), 5u);
    EXPECT_EQ(again[0].path, "/DCIM/Camera/IMG_0.jpg") << "files written since show at the next list";
    EXPECT_EQ(ids.count(again[0].id), 0u);
    EXPECT_EQ(again[1].id, first.id);
}

TEST_F(AgentMedia, AnEmptyCatalogueIsAnEmptyPayload) {
    std::filesystem::remove_all(tree.host("Movies"));
    const AgentReply r = roundtrip(conn, make_list_video_packet());
    EXPECT_EQ(r.header.status, 0u);
    EXPECT_EQ(r.header.length, 0u);
    EXPECT_EQ(r.header.crc, 0u);
}

TEST_F(AgentMedia, AddAndDelChangeTheCatalogueButNeverTheFiles) {
    EXPECT_EQ(status_of(make_del_image_packet("/Music/cover.jpg")), 0u);
    EXPECT_EQ(status_of(make_del_image_packet("/Music/cover.jpg")), static_cast<uint32_t>(ENOENT));
    EXPECT_TRUE(tree.exists("Music/cover.jpg"));
    EXPECT_EQ(list(make_list_image_packet()).size(), 3u);

    EXPECT_EQ(status_of(make_add_music_packet("/Music/cover.jpg")), 0u) << "any regular file may be added";
    EXPECT_EQ(status_of(make_add_music_packet("Music//cover.jpg")), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(paths_of(list(make_list_music_packet())),
              (std::vector<std::string>{"/Music/cover.jpg", "/Music/song.mp3"}));
    EXPECT_EQ(status_of(make_add_image_packet("/Music/cover.jpg")), 0u) << "a deleted item comes back";
    EXPECT_EQ(list(make_list_image_packet()).size(), 4u);
    EXPECT_EQ(status_of(make_add_image_packet("/Music/cover.jpg")), static_cast<uint32_t>(EEXIST));

    EXPECT_EQ(status_of(make_del_music_packet("/Music/cover.jpg")), 0u);
    EXPECT_EQ(paths_of(list(make_list_music_packet())), (std::vector<std::string>{"/Music/song.mp3"}));
    EXPECT_EQ(status_of(make_add_video_packet("/Movies/none.mp4")), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(status_of(make_add_video_packet("/Movies")), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(status_of(make_del_video_packet("/Download/readme.txt")), static_cast<uint32_t>(ENOENT));

    // The catalogue is the agent's, shared by every connection.
    NetConnection *other = agent.connect();
    EXPECT_EQ(roundtrip(other, make_del_video_packet("/Movies/clip.mp4")).header.status, 0u);
    NetConnectionClose(other);
    EXPECT_TRUE(list(make_list_video_packet()).empty());
}

TEST(MediaTypes, KindAndMimeComeFromTheExtensionWhateverItsCase) {
    using agent::MediaKind;
    EXPECT_EQ(agent::media_kind_of("/a/B.JpG"), MediaKind::Image);
    EXPECT_EQ(agent::media_kind_of("x.flac"), MediaKind::Music);
    EXPECT_EQ(agent::media_kind_of("x.3gp"), MediaKind::Video);
    EXPECT_EQ(agent::media_kind_of("x.txt"), std::nullopt);
    EXPECT_EQ(agent::media_kind_of("dir.jpg/file"), std::nullopt);
    EXPECT_EQ(agent::media_kind_of("jpg"), std::nullopt);
    EXPECT_EQ(agent::mime_type_of("a.MP4"), "video/mp4");
    EXPECT_EQ(agent::mime_type_of("a.pdf"), "application/pdf");
    EXPECT_EQ(agent::mime_type_of("a.unknown"), "application/octet-stream");
}

}  // namespace
}  // namespace wrenlink::test
