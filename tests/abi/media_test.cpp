#include <gtest/gtest.h>

#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/media_list.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

namespace {

const auto item = media_item;
void free_list(__MediaBean *record) { free_media_list(record); }

// The record is packed: its fields are read by value, never bound to a reference.
template <class T>
T field(T value) {
    return value;
}

__MediaBean *const kUntouched = reinterpret_cast<__MediaBean *>(0x1);

}  // namespace

TEST(Media, WorkedPacketsAndAList) {
    ScriptedAgent agent;
    agent.add(Script()
                  .expect(bytes("fc 9c cf f0 00 00 00 00 68 00 00 00 00 00 00 00 00 00 00 00"))
                  .send(reply(0, item(0xA1B2C3D4u, "a.jpg", 1ull << 40, "/p", ~0ull, "") + item(4, "", 5, "", 6, "z")))
                  .expect(bytes("fc 9c cf f0 03 00 00 00 69 00 00 00 00 00 00 00 00 00 00 00 61 62 63"))
                  .send(reply(5)).read(20).send(reply(0)));
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
    free_list(head.next);
    EXPECT_EQ(NMCAddImage(conn, "abc"), 5u);
    head.next = kUntouched;
    EXPECT_EQ(NMCListMusics(conn, &head, &count), 0u);  // an empty list
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(field(head.next), kUntouched);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

// A failed list attaches nothing (what was parsed is freed: LeakSanitizer) and writes no count,
// and leaves nothing that stops the next exchange. Every cut of a two-item payload but the one
// between the items is malformed.
TEST(Media, FailedListsLeaveHeadAndCountAlone) {
    const std::string first = item(1, "a", 2, "bc", 3, "");
    const std::string payload = first + item(4, "", 5, "de", 6, "f");
    ScriptedAgent agent;
    Script script;
    for (std::size_t cut = 1; cut < payload.size(); ++cut) script.read(20).send(reply(0, payload.substr(0, cut)));
    agent.add(script.read(20).send(header(0xF0CF9CFCu, 0x80000000u, 0, 0, 0))  // "negative": nothing read
                  .read(20).send(reply(7)).read(20).send(header(0xF0CF9CFDu, 0, 0, 0, 0))
                  .read(20).send(header(0xF0CF9CFCu, 30, 0, 0, 0) + std::string(10, 'x')));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    __MediaBean head{};
    head.next = kUntouched;
    uint32_t count = 77;
    for (std::size_t cut = 1; cut < payload.size(); ++cut) {
        if (cut != first.size()) {
            EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentShortPayload) << "cut at " << cut;
            continue;
        }
        EXPECT_EQ(NMCListVideo(conn, &head, &count), 0u);
        EXPECT_EQ(count, 1u);
        free_list(field(head.next));
        head.next = kUntouched;
        count = 77;
    }
    EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentShortPayload);
    EXPECT_EQ(NMCListVideo(conn, &head, &count), 7u);
    EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentBadMagic);
    EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentShortPayload);  // the peer closed inside the payload
    EXPECT_EQ(field(head.next), kUntouched);
    EXPECT_EQ(count, 77u);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}
