#include <gtest/gtest.h>

#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

namespace {

std::string item(uint32_t v1, const std::string &t1, uint64_t v2, const std::string &t2, uint64_t v3,
                 const std::string &t3) {
    return le32(v1) + t1 + '\0' + le64(v2) + t2 + '\0' + le64(v3) + t3 + '\0';
}

void free_list(__MediaBean *record) {
    while (record != nullptr) {
        __MediaBean *next = record->next;
        WrenlinkFree(record->text1);
        WrenlinkFree(record->text2);
        WrenlinkFree(record->text3);
        WrenlinkFree(record);
        record = next;
    }
}

__MediaBean *const kUntouched = reinterpret_cast<__MediaBean *>(0x1);

// The record is packed: its fields are read by value, never bound to a reference.
template <class T>
T field(T value) {
    return value;
}

}  // namespace

TEST(Media, WorkedPacketsAndAList) {
    ScriptedAgent agent;
    agent.add(Script()
                  .expect(bytes("fc 9c cf f0 00 00 00 00 68 00 00 00 00 00 00 00 00 00 00 00"))
                  .send(reply(0, item(1, "a.jpg", 2, "/p", 3, "") + item(4, "", 5, "", 6, "z")))
                  .expect(bytes("fc 9c cf f0 03 00 00 00 69 00 00 00 00 00 00 00 00 00 00 00 61 62 63"))
                  .send(reply(5)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    __MediaBean head{};
    uint32_t count = 0;
    ASSERT_EQ(NMCListImages(conn, &head, &count), 0u);
    ASSERT_EQ(count, 2u);
    EXPECT_STREQ(field(head.next->text1), "a.jpg");
    EXPECT_EQ(field(head.next->next->value3), 6u);
    EXPECT_STREQ(field(head.next->next->text3), "z");
    free_list(head.next);
    EXPECT_EQ(NMCAddImage(conn, "abc"), 5u);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

TEST(Media, EachOperationSendsItsOpcodeAndText) {
    ScriptedAgent agent;
    // Answers each request with its own opcode: as the status of an add or del, as the value1 of
    // the one item of a list. Anything malformed gets status 1.
    agent.add(Script().serve([](const Request &r) -> std::optional<std::string> {
        const uint32_t op = r.header.opcode;
        const bool list = op == 101 || op == 104 || op == 107;
        if (r.header.crc != 0 || r.payload != (list ? "" : "/x y")) return reply(1);
        return list ? reply(0, item(op, "", 0, "", 0, "")) : reply(op);
    }));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    const std::pair<AgentStatus (*)(NetConnection *, const char *), uint32_t> changes[] = {
        {NMCAddMusic, 102}, {NMCDelMusic, 103}, {NMCAddImage, 105},
        {NMCDelImage, 106}, {NMCAddIVideo, 108}, {NMCDelIVideo, 109}};
    for (const auto &[change, opcode] : changes) EXPECT_EQ(change(conn, "/x y"), opcode);
    const std::pair<AgentStatus (*)(NetConnection *, __MediaBean *, uint32_t *), uint32_t> lists[] = {
        {NMCListMusics, 101}, {NMCListImages, 104}, {NMCListVideo, 107}};
    for (const auto &[list, opcode] : lists) {
        __MediaBean head{};
        uint32_t count = 0;
        ASSERT_EQ(list(conn, &head, &count), 0u);
        ASSERT_EQ(count, 1u);
        EXPECT_EQ(field(head.next->value1), opcode);
        free_list(head.next);
    }
    NetConnectionClose(conn);
}

TEST(Media, EmptyListKeepsTheHead) {
    ScriptedAgent agent;
    agent.add(Script().read(20).send(reply(0)));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    __MediaBean head{};
    head.next = kUntouched;
    uint32_t count = 5;
    EXPECT_EQ(NMCListMusics(conn, &head, &count), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(field(head.next), kUntouched);
    NetConnectionClose(conn);
}

// A failed list attaches nothing and writes no count, and (unlike the scan) leaves nothing that
// stops the next exchange.
TEST(Media, FailedListsLeaveHeadAndCountAlone) {
    ScriptedAgent agent;
    agent.add(Script()
                  .read(20).send(reply(0, item(1, "a", 2, "b", 3, "c") + le32(9)))
                  .read(20).send(header(0xF0CF9CFCu, 0x80000000u, 0, 0, 0))
                  .read(20).send(reply(7))
                  .read(20).send(header(0xF0CF9CFDu, 0, 0, 0, 0))
                  .read(23).send(reply(0))
                  .read(20).send(header(0xF0CF9CFCu, 30, 0, 0, 0) + std::string(10, 'x')));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    __MediaBean head{};
    head.next = kUntouched;
    uint32_t count = 77;
    EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentShortPayload);
    EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentShortPayload);
    EXPECT_EQ(NMCListVideo(conn, &head, &count), 7u);
    EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentBadMagic);
    EXPECT_EQ(NMCDelImage(conn, "abc"), 0u);
    EXPECT_EQ(NMCListVideo(conn, &head, &count), AgentShortPayload);
    EXPECT_EQ(field(head.next), kUntouched);
    EXPECT_EQ(count, 77u);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}
