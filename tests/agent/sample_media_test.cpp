// The sample phone's files are real files of their kind: their framing checks out with an
// independent CRC and the sizes they declare.
#include <gtest/gtest.h>

#include "base/wire.h"
#include "media_files.h"

namespace wrenlink::test {
namespace {

using namespace wrenlink::sample;

uint32_t be32(const std::string &s, std::size_t at) {
    return static_cast<uint32_t>(static_cast<unsigned char>(s[at])) << 24 |
           static_cast<uint32_t>(static_cast<unsigned char>(s[at + 1])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(s[at + 2])) << 8 | static_cast<unsigned char>(s[at + 3]);
}
uint32_t le32(const std::string &s, std::size_t at) { return wire::load_u32(s.data() + at); }

// Bitwise CRC-32 as zlib computes it, independent of the table-driven code.
uint32_t reference_crc(const std::string &s) {
    uint32_t c = 0xFFFFFFFFu;
    for (unsigned char b : s) {
        c ^= b;
        for (int k = 0; k < 8; ++k) c = (c & 1u) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
    }
    return ~c;
}

TEST(SampleMedia, PngChunksCarryTheirCrcAndTheImageSize) {
    const std::string p = png(test_picture(30, 20, 1));
    ASSERT_EQ(p.substr(0, 8), "\x89PNG\r\n\x1a\n");
    std::size_t at = 8;
    std::vector<std::string> types;
    while (at < p.size()) {
        const uint32_t length = be32(p, at);
        ASSERT_LE(at + 12 + length, p.size());
        const std::string typed = p.substr(at + 4, 4 + length);
        EXPECT_EQ(be32(p, at + 8 + length), reference_crc(typed)) << typed.substr(0, 4);
        types.push_back(typed.substr(0, 4));
        at += 12 + length;
    }
    EXPECT_EQ(types, (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));
    EXPECT_EQ(be32(p, 16), 30u);
    EXPECT_EQ(be32(p, 20), 20u);
    // Stored deflate: the raw rows (a filter byte and 3 bytes a pixel) sit in the stream whole.
    EXPECT_GT(p.size(), 20u * (1 + 30 * 3));
}

TEST(SampleMedia, RiffFilesDeclareTheSizesTheyHave) {
    const std::string w = wav({440.0, 880.0}, 100);
    EXPECT_EQ(w.substr(0, 4), "RIFF");
    EXPECT_EQ(le32(w, 4), w.size() - 8);
    EXPECT_EQ(w.substr(8, 4), "WAVE");
    EXPECT_EQ(w.substr(36, 4), "data");
    EXPECT_EQ(le32(w, 40), 2u * 2 * 800) << "two notes of 800 samples, 2 bytes each";

    const std::string a = avi(16, 16, 3, 10, 0);
    EXPECT_EQ(le32(a, 4), a.size() - 8);
    EXPECT_EQ(a.substr(8, 4), "AVI ");
    EXPECT_EQ(le32(a, 32 + 16), 3u) << "total frames in the main header";
}

TEST(SampleMedia, JpegIsABaselineFrameOfThePictureSize) {
    const std::string j = jpeg(test_picture(40, 24, 2));
    EXPECT_EQ(j.substr(0, 2), "\xFF\xD8");
    EXPECT_EQ(j.substr(j.size() - 2), "\xFF\xD9");
    const std::size_t sof = j.find("\xFF\xC0");
    ASSERT_NE(sof, std::string::npos);
    EXPECT_EQ(static_cast<unsigned char>(j[sof + 5]) << 8 | static_cast<unsigned char>(j[sof + 6]), 24);
    EXPECT_EQ(static_cast<unsigned char>(j[sof + 7]) << 8 | static_cast<unsigned char>(j[sof + 8]), 40);
    // Inside the entropy-coded data every 0xFF is stuffed with a 0.
    const std::size_t sos = j.find("\xFF\xDA");
    for (std::size_t i = sos + 14; i + 2 < j.size(); ++i)
        if (static_cast<unsigned char>(j[i]) == 0xFF) {
            EXPECT_EQ(j[i + 1], '\0') << "at " << i;
            ++i;
        }
}

TEST(SampleMedia, ZipEntriesCarryTheCrcOfTheirData) {
    const std::string z = zip({{"a.txt", "hello"}, {"b.txt", ""}});
    EXPECT_EQ(le32(z, 0), 0x04034b50u);
    EXPECT_EQ(le32(z, 14), reference_crc("hello"));
    EXPECT_EQ(le32(z, 18), 5u);
    EXPECT_EQ(z.substr(30, 10), "a.txthello");
    const std::size_t end = z.size() - 22;
    EXPECT_EQ(le32(z, end), 0x06054b50u);
    EXPECT_EQ(le32(z, end + 16), z.find("PK\x01\x02")) << "the central directory's offset";
}

}  // namespace
}  // namespace wrenlink::test
