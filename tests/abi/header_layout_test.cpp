// The records have the same layout whether the header is read by a C or a C++ compiler.
#include <gtest/gtest.h>

#include <cstddef>

#include "Wrenlink/Wrenlink.h"

extern "C" size_t wrenlink_c_phone_info_size(void);
extern "C" size_t wrenlink_c_media_bean_next_offset(void);

TEST(HeaderLayout, CAndCppAgree) {
    EXPECT_EQ(wrenlink_c_phone_info_size(), sizeof(PhoneInfo));
    EXPECT_EQ(wrenlink_c_media_bean_next_offset(), offsetof(__MediaBean, next));
    // The status codes stay unsigned 32-bit in both languages.
    EXPECT_EQ(AgentBadMagic, 0xE0000001u);
    EXPECT_EQ(AgentShortPayload, 0xE0000002u);
    EXPECT_EQ(AgentBadCrc, 0xE0000003u);
}
