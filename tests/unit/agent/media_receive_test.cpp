// A media list is parsed as its payload comes in, a window at a time: whatever the windows cut, the
// records are those of the whole payload parsed at once.
#include <gtest/gtest.h>

#include <string>

#include "Wrenlink/MediaBean.h"
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
        for (char *text : {record->text1, record->text2, record->text3}) free(text);
        free(record);
        record = next;
    }
}

std::string describe(const __MediaBean &r) {
    const uint32_t v1 = r.value1;
    const uint64_t v2 = r.value2, v3 = r.value3;
    return std::to_string(v1) + "|" + r.text1 + "|" + std::to_string(v2) + "|" + r.text2 + "|" + std::to_string(v3) +
           "|" + r.text3;
}

}  // namespace

TEST(MediaReceive, ItemsAcrossManyWindowsAndOneLargerThanAWindow) {
    std::string payload;
    for (uint32_t i = 0; i < 3000; ++i) {
        const std::string big = i == 1500 ? std::string(40000, 'z') : "image/jpeg";  // grows the window
        payload += item(i, std::string(i % 97, static_cast<char>('a' + i % 26)), i * 7ull, "n" + std::to_string(i),
                        ~uint64_t{i}, big);
    }
    const std::string cut = payload.substr(0, payload.size() - 3);  // ends inside the last item
    ScriptedAgent agent;
    agent.add(Script().read(20).send(reply(0, payload)).read(20).send(reply(0, cut)).read(20).send(reply(0, "x")));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());

    __MediaBean streamed{}, whole{};
    uint32_t count = 0;
    ASSERT_EQ(NMCListImages(conn, &streamed, &count), 0u);
    AgentStatus status = 1;
    EXPECT_EQ(ParseMediaBeanFromBytes(&whole, payload.data(), payload.size(), &status), 3000u);
    EXPECT_EQ(status, 0u);
    ASSERT_EQ(count, 3000u);
    const __MediaBean *a = streamed.next, *b = whole.next;
    for (uint32_t i = 0; i < count; ++i, a = a->next, b = b->next) ASSERT_EQ(describe(*a), describe(*b)) << i;
    EXPECT_EQ(a, nullptr);
    free_list(streamed.next);
    free_list(whole.next);

    // A payload that ends inside an item gives nothing, and the next reply is read in step.
    streamed.next = nullptr;
    count = 77;
    EXPECT_EQ(NMCListImages(conn, &streamed, &count), AgentShortPayload);
    EXPECT_EQ(ParseMediaBeanFromBytes(&whole, cut.data(), cut.size(), &status), 0u);
    EXPECT_EQ(status, AgentShortPayload);
    EXPECT_EQ(NMCListImages(conn, &streamed, &count), AgentShortPayload);  // "x": no NUL
    const __MediaBean *untouched = streamed.next;  // packed: read by value
    EXPECT_EQ(untouched, nullptr);
    EXPECT_EQ(count, 77u);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}
