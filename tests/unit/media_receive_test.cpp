// A media list is parsed as its payload comes in, a window at a time: whatever the windows cut, the
// records are those of the whole payload read at once.
#include <gtest/gtest.h>

#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/media_list.h"
#include "doubles/scripted_agent.h"

using namespace wrenlink::test;

TEST(MediaReceive, ItemsAcrossManyWindowsAndOneLargerThanAWindow) {
    std::string payload;
    for (uint32_t i = 0; i < 3000; ++i) {
        const std::string big = i == 1500 ? std::string(40000, 'z') : "image/jpeg";  // grows the window
        payload += media_item(i, std::string(i % 97, static_cast<char>('a' + i % 26)), i * 7ull,
                              "n" + std::to_string(i), ~uint64_t{i}, big);
    }
    const std::string cut = payload.substr(0, payload.size() - 3);  // ends inside the last item
    ScriptedAgent agent;
    agent.add(Script().read(20).send(reply(0, payload)).read(20).send(reply(0, cut)).read(20).send(reply(0, "x")));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());

    __MediaBean streamed{};
    uint32_t count = 0;
    ASSERT_EQ(NMCListImages(conn, &streamed, &count), 0u);
    const auto whole = parse_media_list(payload);
    ASSERT_TRUE(whole.has_value());
    EXPECT_EQ(count, 3000u);
    EXPECT_TRUE(items_of(streamed.next) == *whole);
    free_media_list(streamed.next);

    // A payload that ends inside an item gives nothing, and the next reply is read in step.
    streamed.next = nullptr;
    count = 77;
    EXPECT_EQ(NMCListImages(conn, &streamed, &count), AgentShortPayload);
    EXPECT_EQ(NMCListImages(conn, &streamed, &count), AgentShortPayload);  // "x": no NUL
    const __MediaBean *untouched = streamed.next;  // packed: read by value
    EXPECT_EQ(untouched, nullptr);
    EXPECT_EQ(count, 77u);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}
