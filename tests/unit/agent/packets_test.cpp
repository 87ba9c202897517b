// The packet frame: CRC worked values, and the bytes of the builders whose frames differ (the
// file and media requests' bytes are pinned where the library sends them).
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "base/crc.h"
#include "agent/wire/packets.h"
#include "base/packet.h"
#include "doubles/scripted_agent.h"

using wrenlink::test::bytes;
using wrenlink::test::hex;
namespace wire = wrenlink::wire;

TEST(Crc, WorkedValues) {
    EXPECT_EQ(get_crc32("abc", 3, 0), 0xCA6598D0u);
    EXPECT_EQ(get_crc32("abc", 4, 0), 0x8619B74Cu);  // with the terminator
    // Chaining: the CRC of a whole equals the CRC of its second half started from the first's.
    EXPECT_EQ(get_crc32("abc", 3, 0), get_crc32("bc", 2, get_crc32("a", 1, 0)));
}

TEST(Packets, TheEraseRequestCarriesItsTerminatorButNoCrc) {
    EXPECT_EQ(hex(make_erase_file_packet("abc")), hex(bytes("fc9ccff0 04000000 d0000000 00000000 00000000 61626300")));
}

// The requests whose bytes no test of an exchange pins: each carries its own opcode.
TEST(Packets, EachMediaRequestCarriesItsOpcode) {
    const std::pair<std::string, uint32_t> requests[] = {
        {make_list_music_packet(), 101},       {make_add_music_packet("a"), 102}, {make_del_music_packet("a"), 103},
        {make_del_image_packet("a"), 106},     {make_list_video_packet(), 107},   {make_add_video_packet("a"), 108},
        {make_del_video_packet("a"), 109},     {make_start_scan_packet(nullptr), 201},
    };
    for (const auto &[packet, opcode] : requests) EXPECT_EQ(wire::decode_header(packet.data()).opcode, opcode);
}

// The exchanges pin small blocks; here each field takes its whole width, a negative offset all
// eight bytes.
TEST(Packets, FileBlockIsLittleEndianAndUnaligned) {
    const auto p = make_file_read_packet(0x01020304u, -2, 0x7FFFFFFF);
    EXPECT_EQ(hex(p.substr(20)), hex(bytes("04030201 feffffffffffffff ffffff7f")));
}
