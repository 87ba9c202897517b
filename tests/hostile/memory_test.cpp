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

// A reply that claims 64 MiB where the call takes a few bytes is never held whole: a read's is
// dropped as it comes and the stream stays in step for the next read; a tell's (it needs 8 bytes)
// is checked as it comes, and its failure stops the file family.
TEST(HostileMemory, RepliesFarLongerThanTheCallTakesAreNeverHeldWhole) {
    constexpr uint32_t kClaimed = 64 * kMiB;
    const struct {
        uint32_t opcode;
        AgentStatus result, nextRead;
    } rows[] = {{3, static_cast<AgentStatus>(EMSGSIZE), 0}, {5, AgentBadCrc, AgentBadCrc}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.opcode);
        ScriptedAgent agent;
        agent.add(Script().expect_request(1).send(reply(0, le32(7)))
                      .expect_request(row.opcode).send(header(wrenlink::wire::kMagic, kClaimed, row.opcode, 0, 0))
                      .send_filler(kClaimed).expect_request(3).send(reply(0, "next")));
        NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
        NFCFileRef *ref = nullptr;
        ASSERT_EQ(NFCFileRefOpen(conn, "/f", "r", &ref), 0u);
        char buffer[4096] = {};
        int32_t length = sizeof buffer;
        int64_t position = -1;
        AgentStatus result = 0;
        const long growth = peak_growth_kib([&] {
            result = row.opcode == 3 ? NFCFileRefRead(conn, ref, buffer, &length) : NFCFileRefTell(conn, ref, &position);
        });
        if (growth < 0) GTEST_SKIP() << "no peak resident figure here";
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(position, -1);
        EXPECT_LT(growth, kGoalKiB);
        EXPECT_EQ(NFCFileRefRead(conn, ref, buffer, &length), row.nextRead);
        EXPECT_TRUE(row.nextRead != 0 || std::string(buffer, static_cast<std::size_t>(length)) == "next");
        // A stopped family's close ends at its gate and keeps the handle; any other releases it.
        if (NFCFileRefClose(conn, ref) != 0 && row.nextRead != 0) WrenlinkFree(ref);
        NetConnectionClose(conn);
    }
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
