// Media lists against a scripted agent: the request bytes and the records (what a failed list
// leaves is played with the other failures). A list is parsed as its payload comes in, a window
// at a time: whatever the windows cut, the records written back are the whole payload.
#include <gtest/gtest.h>

#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/media_list.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

namespace {

// The record is packed: its fields are read by value, never bound to a reference.
template <class T>
T field(T value) {
    return value;
}

__MediaBean *const kUntouched = reinterpret_cast<__MediaBean *>(0x1);


}  // namespace

// The bytes of each request are in docs/protocol.md.
TEST(Media, AListAnAddAndAnEmptyList) {
    ScriptedAgent agent;
    agent.add(Script()
                  .expect_request(104)
                  .send(reply(0, media_item(0xA1B2C3D4u, "a.jpg", 1ull << 40, "/p", ~0ull, "") +
                                 media_item(4, "", 5, "", 6, "z")))
                  .expect_request(105).send(reply(5)).expect_request(101).send(reply(0)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    __MediaBean head{};
    uint32_t count = 0;
    ASSERT_EQ(NMCListImages(conn, &head, &count), 0u);
    ASSERT_EQ(count, 2u);
    const __MediaBean *a = head.next, *b = a->next;
    EXPECT_EQ(field(a->value1), 0xA1B2C3D4u);
    EXPECT_EQ(field(a->value2), 1ull << 40);
    EXPECT_EQ(field(a->value3), ~0ull);
    EXPECT_STREQ(field(a->text1), "a.jpg");
    EXPECT_STREQ(field(a->text3), "");
    EXPECT_STREQ(field(b->text1), "");  // empty, never null
    EXPECT_STREQ(field(b->text3), "z");
    EXPECT_EQ(field(b->next), nullptr);
    free_media_list(head.next);
    EXPECT_EQ(NMCAddImage(conn, "abc"), 5u);
    head.next = kUntouched;
    EXPECT_EQ(NMCListMusics(conn, &head, &count), 0u);  // an empty list
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(field(head.next), kUntouched);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

TEST(Media, ItemsAcrossManyWindowsAndOneLargerThanAWindow) {
    std::string payload;
    for (uint32_t i = 0; i < 3000; ++i) {
        const std::string big = i == 1500 ? std::string(40000, 'z') : "image/jpeg";  // grows the window
        payload += media_item(i, std::string(i % 97, static_cast<char>('a' + i % 26)), i * 7ull, "n" + std::to_string(i),
                              ~uint64_t{i}, big);
    }
    ScriptedAgent agent;
    agent.add(Script().expect_request(104).send(reply(0, payload)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    __MediaBean streamed{};
    uint32_t count = 0;
    ASSERT_EQ(NMCListImages(conn, &streamed, &count), 0u);
    EXPECT_EQ(count, 3000u);
    EXPECT_TRUE(written_back(streamed.next) == payload);
    free_media_list(streamed.next);
    NetConnectionClose(conn);
}
