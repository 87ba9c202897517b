// The packet frame: CRC worked values, and the bytes of the builders whose frames differ (the
// file and media requests' bytes are pinned where the library sends them).
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

TEST(Packets, TheEraseRequestCarriesItsTerminatorButNoCrc) {
    EXPECT_EQ(hex(make_erase_file_packet("abc")), hex(bytes("fc9ccff0 04000000 d0000000 00000000 00000000 61626300")));
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
