// Memory: the resident set across 100,000 agent exchanges with the reference agent (ping, open,
// read, write, seek and its tell, close, a media list freed again) and across 1,000 tool runs,
// each after a warm-up so that the allocator's pools are already in place. The figure is the growth
// in KiB; each case runs once.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "media_release.h"
#include "ratio_report.h"
#include "reference_agent.h"
#include "resident.h"

namespace {

using namespace wrenlink::bench;


// One round of exchanges of every kind; their count, or 0 when one failed.
int exchange_round(NetConnection *conn, std::vector<unsigned char> &buffer) {
    NFCFileRef *ref = nullptr;
    if (TestPing(conn) != 0 || NFCFileRefOpen(conn, "/write.bin", "r+", &ref) != 0) return 0;
    int32_t length = static_cast<int32_t>(buffer.size());
    bool ok = NFCFileRefRead(conn, ref, buffer.data(), &length) == 0 &&
              NFCFileRefWrite(conn, ref, buffer.data(), length) == 0 && NFCFileRefSeek(conn, ref, 0, 0) == 0;
    ok = NFCFileRefClose(conn, ref) == 0 && ok;
    __MediaBean head{};
    uint32_t count = 0;
    ok = ok && NMCListImages(conn, &head, &count) == 0 && count == 3;
    free_media_list(head.next);
    return ok ? 8 : 0;
}

void growth_counters(benchmark::State &state, long before, long count) {
    state.counters["library KiB"] = static_cast<double>(resident_kib() - before);  // the growth
    state.counters["resident_before_KiB"] = static_cast<double>(before);
    state.counters["count"] = static_cast<double>(count);
}

void Memory_agent_exchanges(benchmark::State &state) {
    const ReferenceAgent *agent = ReferenceAgent::get();
    NetConnection *conn = agent ? NetConnectionOpen("127.0.0.1", agent->port()) : nullptr;
    if (conn == nullptr || resident_kib() < 0) {
        state.SkipWithError("no agent, or no resident-set figure on this system");
        return;
    }
    std::vector<unsigned char> buffer(4096);
    for (auto _ : state) {
        for (int i = 0; i < 5000; i += 8) exchange_round(conn, buffer);
        const long before = resident_kib();
        long done = 0;
        while (done < 100000) {
            const int n = exchange_round(conn, buffer);
            if (n == 0) break;
            done += n;
        }
        if (done < 100000) state.SkipWithError("an exchange failed");
        growth_counters(state, before, done);
    }
    NetConnectionClose(conn);
}

void Memory_tool_runs(benchmark::State &state) {
    if (resident_kib() < 0) {
        state.SkipWithError("no resident-set figure on this system");
        return;
    }
    char output[2048];
    auto run = [&] {
        std::memset(output, 0, sizeof output);
        AdbCommand(" devices", output, sizeof output, true);
        return std::strncmp(output, "List of devices attached", 24) == 0;
    };
    for (auto _ : state) {
        for (int i = 0; i < 50; ++i) run();
        const long before = resident_kib();
        int done = 0;
        while (done < 1000 && run()) ++done;
        if (done < 1000) state.SkipWithError("a tool run failed");
        growth_counters(state, before, done);
    }
}

}  // namespace

BENCHMARK(Memory_agent_exchanges)->Name("Memory/agent_exchanges")->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Memory_tool_runs)->Name("Memory/tool_runs")->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);

static const int kMemoryGoals[] = {
    goal("Memory/agent_exchanges", "", Bound::AtMost, 64),  // KiB: flat, within a few pages
    goal("Memory/tool_runs", "", Bound::AtMost, 64),
};
