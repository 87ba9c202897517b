// The packet codec that every side shares: what it puts in a header, and what it reads back.
#include <gtest/gtest.h>

#include <string>

#include "base/packet.h"
#include "doubles/scripted_agent.h"

using wrenlink::test::bytes;
using wrenlink::test::hex;
namespace wire = wrenlink::wire;

TEST(PacketCodec, HeaderFieldsFollowTheArguments) {
    const std::string p = wire::packet(0x0102, "abc", wire::Crc::OverPayload, 0x0A0B);
    EXPECT_EQ(hex(p), hex(bytes("fc9ccff0 03000000 02010000 d09865ca 0b0a0000 616263")));
    EXPECT_EQ(hex(wire::packet(3, "abc", wire::Crc::Zero)), hex(wire::packet_header(3, 3) + "abc"));
    // A header for a payload sent apart counts the payload it does not carry.
    EXPECT_EQ(wire::decode_header(wire::packet_header(4, 1000).data()).length, 1000u);
}

TEST(PacketCodec, ExplicitFormKeepsEveryField) {
    const wire::PacketHeader given{wire::kMagic ^ 1u, 99, 7, 0xDEADBEEF, 5};
    const std::string p = wire::packet_as_given(given, "xy");
    ASSERT_EQ(p.size(), wire::kHeaderSize + 2);
    wire::PacketHeader read;
    EXPECT_FALSE(wire::read_header(p.data(), read));  // the wrong magic is told, the fields kept
    EXPECT_EQ(hex(wire::packet_as_given(read, "xy")), hex(p));
    EXPECT_TRUE(wire::read_header(wire::packet(7, "", wire::Crc::Zero).data(), read));
}

TEST(PacketCodec, RunningCrcEqualsTheWholePayloadsAtEverySplit) {
    const std::string payload = "a payload read in pieces of any size";
    for (std::size_t cut = 0; cut <= payload.size(); ++cut) {
        wire::PayloadCrc crc;
        crc.add(payload.data(), cut);
        crc.add(payload.data() + cut, payload.size() - cut);
        EXPECT_EQ(crc.value(), wire::payload_crc(payload)) << "cut at " << cut;
    }
}
