#include <gtest/gtest.h>

#include "Wrenlink/crc.h"
#include "Wrenlink/packets.h"
#include "doubles/scripted_agent.h"

using wrenlink::test::bytes;
using wrenlink::test::hex;

TEST(Crc, WorkedValues) {
    EXPECT_EQ(get_crc32("abc", 3, 0), 0xCA6598D0u);
    EXPECT_EQ(get_crc32("abc", 4, 0), 0x8619B74Cu);
    EXPECT_EQ(get_crc32("", 0, 0), 0u);
    EXPECT_EQ(get_crc32("", 0, 0x1234u), 0x1234u);
    EXPECT_EQ(get_crc32("\0", 1, 0), 0u);
}
