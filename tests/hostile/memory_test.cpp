// A peer and a tool that send far more than the caller asked for: what the library keeps follows
// the caller's buffer, not them. Measured as the growth of this process's peak resident set over
// one call, with the kernel's high-water mark reset just before it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/scripted_agent.h"
#include "doubles/tool_runs.h"

using namespace wrenlink::test;

namespace {

constexpr long kMiB = 1024 * 1024;
constexpr long kGoalKiB = 16 * 1024;

long status_kib(const char *field) {
    std::FILE *f = std::fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long value = -1;
    while (std::fgets(line, sizeof line, f) != nullptr) {
        if (std::strncmp(line, field, std::strlen(field)) == 0) value = std::atol(line + std::strlen(field));
    }
    std::fclose(f);
    return value;
}

// The growth of the peak resident set while `call` runs, in KiB; -1 where the system can't tell.
long peak_growth_kib(const std::function<void()> &call) {
    const int fd = ::open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC);
    const bool reset = fd >= 0 && ::write(fd, "5", 1) == 1;  // peak := current
    if (fd >= 0) ::close(fd);
    const long before = status_kib("VmRSS:");
    if (!reset || before < 0) return -1;
    call();
    return status_kib("VmHWM:") - before;
}

std::string filled(std::size_t n, char first) {
    std::string text(n, '\0');
    for (std::size_t i = 0; i < n; ++i) text[i] = static_cast<char>(first + i % 26);
    return text;
}

}  // namespace

TEST(HostileMemory, ReadReplyFarLongerThanAskedIsDroppedAsItComes) {
    constexpr uint32_t kClaimed = 64 * kMiB;
    ScriptedAgent agent;
    agent.add(Script().expect_request(1).send(reply(0, le32(7)))
                  .expect_request(3).send(header(wrenlink::wire::kMagic, kClaimed, 3, 0, 0)).send_filler(kClaimed)
                  .expect_request(3).send(reply(0, "next")));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/f", "r", &ref), 0u);
    char buffer[4096] = {};
    int32_t length = sizeof buffer;
    AgentStatus refused = 0;
    const long growth = peak_growth_kib([&] { refused = NFCFileRefRead(conn, ref, buffer, &length); });
    if (growth < 0) GTEST_SKIP() << "no peak resident figure here";
    EXPECT_EQ(refused, static_cast<AgentStatus>(EMSGSIZE));
    EXPECT_LT(growth, kGoalKiB);
    // The stream stayed in step: the next reply is read as the next read's.
    EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &length), 0u);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(length)), "next");
    NFCFileRefClose(conn, ref);  // released whatever the closed stream answers
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

// A tell needs 8 bytes of its payload: a reply that claims far more is checked as it comes, never
// held whole.
TEST(HostileMemory, TellReplyFarLongerThanItsPositionIsCheckedAsItComes) {
    constexpr uint32_t kClaimed = 64 * kMiB;
    ScriptedAgent agent;
    agent.add(Script().expect_request(1).send(reply(0, le32(7)))
                  .expect_request(5).send(header(wrenlink::wire::kMagic, kClaimed, 5, 0, 0)).send_filler(kClaimed));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/f", "r", &ref), 0u);
    int64_t position = -1;
    AgentStatus told = 0;
    const long growth = peak_growth_kib([&] { told = NFCFileRefTell(conn, ref, &position); });
    if (growth < 0) GTEST_SKIP() << "no peak resident figure here";
    EXPECT_EQ(told, AgentBadCrc);
    EXPECT_EQ(position, -1);
    EXPECT_LT(growth, kGoalKiB);
    WrenlinkFree(ref);  // the family is stopped now, so a close would end at its gate
    NetConnectionClose(conn);
}

TEST(HostileMemory, ToolOutputBeyondTheCallersBufferIsReadAndDropped) {
    FakeAdb adb;
    adb.scenario("always fill 33554432 8388608");
    std::string text;
    const long growth = peak_growth_kib([&] { text = adb_text(" logcat"); });
    if (growth < 0) GTEST_SKIP() << "no peak resident figure here";
    EXPECT_EQ(text, filled(2047, 'A'));
    EXPECT_LT(growth, kGoalKiB);
}
