#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "Wrenlink/MediaBean.h"
#include "doubles/scripted_agent.h"

using wrenlink::test::le32;
using wrenlink::test::le64;

namespace {

std::string item(uint32_t v1, const std::string &t1, uint64_t v2, const std::string &t2, uint64_t v3,
                 const std::string &t3) {
    return le32(v1) + t1 + '\0' + le64(v2) + t2 + '\0' + le64(v3) + t3 + '\0';
}

void free_list(__MediaBean *record) {
    while (record != nullptr) {
        __MediaBean *next = record->next;
        std::free(record->text1);
        std::free(record->text2);
        std::free(record->text3);
        std::free(record);
        record = next;
    }
}

// Parses from a block of exactly the payload's size, so that a read past its end trips ASan.
uint32_t parse(__MediaBean &head, const std::string &payload, AgentStatus &status) {
    std::vector<unsigned char> exact(payload.begin(), payload.end());
    return ParseMediaBeanFromBytes(&head, exact.data(), exact.size(), &status);
}

__MediaBean *const kUntouched = reinterpret_cast<__MediaBean *>(0x1);

// The record is packed: its fields are read by value, never bound to a reference.
template <class T>
T field(T value) {
    return value;
}

}  // namespace

TEST(MediaBean, ItemsInWireOrderWithTheirValuesAndTexts) {
    const std::string one = item(0xA1B2C3D4u, "IMG_1.jpg", 0x0102030405060708u, "/sdcard/DCIM", ~0ull, "image/jpeg");
    const std::string empty = item(0, "", 0, "", 0, "");
    EXPECT_EQ(empty.size(), 23u);
    __MediaBean head{};
    head.value1 = 99;
    AgentStatus status = 1;
    ASSERT_EQ(parse(head, one + empty + one, status), 3u);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(field(head.value1), 99u);
    const __MediaBean *a = head.next, *b = a->next, *c = b->next;
    EXPECT_EQ(field(a->value1), 0xA1B2C3D4u);
    EXPECT_STREQ(field(a->text1), "IMG_1.jpg");
    EXPECT_EQ(field(a->value2), 0x0102030405060708u);
    EXPECT_STREQ(field(a->text2), "/sdcard/DCIM");
    EXPECT_EQ(field(a->value3), ~0ull);
    EXPECT_STREQ(field(a->text3), "image/jpeg");
    ASSERT_TRUE(b->text1 && b->text2 && b->text3);
    EXPECT_STREQ(field(b->text1), "");
    EXPECT_STREQ(field(b->text3), "");
    EXPECT_STREQ(field(c->text3), "image/jpeg");
    EXPECT_EQ(field(c->next), nullptr);
    free_list(head.next);
}

TEST(MediaBean, EmptyPayloadWritesNothing) {
    __MediaBean head{};
    head.next = kUntouched;
    AgentStatus status = 1;
    EXPECT_EQ(ParseMediaBeanFromBytes(&head, nullptr, 0, &status), 0u);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(field(head.next), kUntouched);
}

// Every cut of a two-item payload but the one between the items is malformed: nothing is
// attached and what was parsed is freed (LeakSanitizer checks the latter).
TEST(MediaBean, PayloadNotEndingOnAnItemIsRefusedWhole) {
    const std::string first = item(1, "a", 2, "bc", 3, "");
    const std::string payload = first + item(4, "", 5, "de", 6, "f");
    for (std::size_t cut = 1; cut < payload.size(); ++cut) {
        __MediaBean head{};
        head.next = kUntouched;
        AgentStatus status = 0;
        const uint32_t n = parse(head, payload.substr(0, cut), status);
        if (cut == first.size()) {
            EXPECT_EQ(n, 1u);
            EXPECT_EQ(status, 0u);
            free_list(head.next);
            continue;
        }
        EXPECT_EQ(status, AgentShortPayload) << "cut at " << cut;
        EXPECT_EQ(field(head.next), kUntouched) << "cut at " << cut;
    }
}
