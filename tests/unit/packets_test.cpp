// The packet frame: CRC worked values and every builder's bytes.
#include <gtest/gtest.h>

#include "base/crc.h"
#include "agent/wire/packets.h"
#include "base/wire.h"
#include "doubles/scripted_agent.h"

using wrenlink::test::bytes;
using wrenlink::test::hex;
namespace wire = wrenlink::wire;

TEST(Crc, WorkedValues) {
    EXPECT_EQ(get_crc32("abc", 3, 0), 0xCA6598D0u);
    EXPECT_EQ(get_crc32("abc", 4, 0), 0x8619B74Cu);  // with the terminator
    EXPECT_EQ(get_crc32("", 0, 0), 0u);
    EXPECT_EQ(get_crc32("", 0, 0x1234u), 0x1234u);
    EXPECT_EQ(get_crc32("\0", 1, 0), 0u);
    // Chaining: the CRC of a whole equals the CRC of its second half started from the first's.
    EXPECT_EQ(get_crc32("abc", 3, 0), get_crc32("bc", 2, get_crc32("a", 1, 0)));
}

TEST(Packets, WorkedBytesForTheTextAbc) {
    EXPECT_EQ(hex(make_add_image_packet("abc")),
              hex(bytes("fc9ccff0 03000000 69000000 00000000 00000000 616263")));
    EXPECT_EQ(hex(make_erase_file_packet("abc")),
              hex(bytes("fc9ccff0 04000000 d0000000 00000000 00000000 61626300")));
    EXPECT_EQ(hex(make_file_delete_packet("abc")),
              hex(bytes("fc9ccff0 03000000 07000000 d09865ca 00000000 616263")));
    EXPECT_EQ(hex(make_file_mkdir_packet("abc")),
              hex(bytes("fc9ccff0 04000000 0d000000 4cb71986 00000000 61626300")));
}

TEST(Packets, EmptyTexts) {
    // Without the terminator: a bare header.
    for (const auto &p : {make_add_image_packet(""), make_del_music_packet(""), make_file_delete_packet("")}) {
        ASSERT_EQ(p.size(), 20u);
        EXPECT_EQ(wire::decode_header(p.data()).length, 0u);
        EXPECT_EQ(wire::decode_header(p.data()).crc, 0u);
    }
    // With the terminator: one NUL, whose CRC is 0.
    for (const auto &p : {make_erase_file_packet(""), make_file_mkdir_packet(""), make_file_acc_packet(""),
                          make_file_stat_packet(""), make_open_dir_packet(""), make_read_dir_packet(""),
                          make_close_dir_packet("")}) {
        ASSERT_EQ(p.size(), 21u);
        EXPECT_EQ(wire::decode_header(p.data()).length, 1u);
        EXPECT_EQ(wire::decode_header(p.data()).crc, 0u);
        EXPECT_EQ(p[20], '\0');
    }
}

struct HeaderCase {
    const char *name;
    std::string packet;
    uint32_t opcode;
    uint32_t length;
    std::size_t size;
};

TEST(Packets, EveryBuilderFramesItsOpcodeAndLength) {
    const HeaderCase cases[] = {
        {"ping", make_ping_packet(), 0, 0, 20},
        {"list music", make_list_music_packet(), 101, 0, 20},
        {"add music", make_add_music_packet("xy"), 102, 2, 22},
        {"del music", make_del_music_packet("xy"), 103, 2, 22},
        {"list image", make_list_image_packet(), 104, 0, 20},
        {"add image", make_add_image_packet("xy"), 105, 2, 22},
        {"del image", make_del_image_packet("xy"), 106, 2, 22},
        {"list video", make_list_video_packet(), 107, 0, 20},
        {"add video", make_add_video_packet("xy"), 108, 2, 22},
        {"del video", make_del_video_packet("xy"), 109, 2, 22},
        {"start scan", make_start_scan_packet("ignored"), 201, 0, 20},
        {"stop scan", make_stop_scan_packet(), 202, 0, 20},
        {"resume scan", make_resume_scan_packet(), 203, 0, 20},
        {"pause scan", make_pause_scan_packet(), 204, 0, 20},
        {"erase", make_erase_file_packet("xy"), 208, 3, 23},
        {"open", make_file_open_packet("/p", "rb"), 1, 6, 26},
        {"close", make_file_close_packet(9), 2, 4, 24},
        {"read", make_file_read_packet(9, 1, 2), 3, 16, 36},
        {"write", make_file_write_packet(9, 1, 100), 4, 116, 36},
        {"tell", make_file_tell_packet(9), 5, 4, 24},
        {"seek", make_file_seek_packet(9, 1, 2), 6, 16, 36},
        {"delete", make_file_delete_packet("xy"), 7, 2, 22},
        {"access", make_file_acc_packet("xy"), 8, 3, 23},
        {"stat", make_file_stat_packet("xy"), 9, 3, 23},
        {"open dir", make_open_dir_packet("xy"), 10, 3, 23},
        {"read dir", make_read_dir_packet("xy"), 11, 3, 23},
        {"close dir", make_close_dir_packet("xy"), 12, 3, 23},
        {"mkdir", make_file_mkdir_packet("xy"), 13, 3, 23},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(c.packet.size(), c.size);
        const auto h = wire::decode_header(c.packet.data());
        EXPECT_EQ(h.magic, 0xF0CF9CFCu);
        EXPECT_EQ(h.opcode, c.opcode);
        EXPECT_EQ(h.length, c.length);
        EXPECT_EQ(h.status, 0u);
    }
}

TEST(Packets, CrcOnlyWhereTheFrameAsksForIt) {
    auto crc_of_payload = [](const std::string &p) {
        return get_crc32(p.data() + 20, static_cast<uint32_t>(p.size() - 20), 0);
    };
    for (const auto &p : {make_file_open_packet("/p", "rb"), make_file_close_packet(9), make_file_tell_packet(9),
                          make_file_seek_packet(9, -1, 2), make_file_acc_packet("/x")}) {
        EXPECT_EQ(wire::decode_header(p.data()).crc, crc_of_payload(p));
        EXPECT_NE(wire::decode_header(p.data()).crc, 0u);
    }
    // Read carries a payload but no CRC; so do the media texts and the erase request.
    for (const auto &p : {make_file_read_packet(9, 5, 6), make_add_video_packet("abc"), make_erase_file_packet("abc")})
        EXPECT_EQ(wire::decode_header(p.data()).crc, 0u);
}

TEST(Packets, FileBlockIsLittleEndianAndUnaligned) {
    const auto p = make_file_read_packet(0x01020304u, -2, 0x7FFFFFFF);
    EXPECT_EQ(hex(p.substr(20)), hex(bytes("04030201 feffffffffffffff ffffff7f")));
    const auto w = make_file_write_packet(3, 0x0102030405060708, 0);
    EXPECT_EQ(wire::decode_header(w.data()).length, 16u);
    EXPECT_EQ(hex(w.substr(20)), hex(bytes("03000000 0807060504030201 00000000")));
    // The open request carries both terminators, counted and covered by the CRC.
    EXPECT_EQ(hex(make_file_open_packet("ab", "w").substr(20)), hex(bytes("61 62 00 77 00")));
}
