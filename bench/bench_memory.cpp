// Memory: the resident set across 100,000 agent exchanges with the reference agent (ping, open,
// read, write, seek and its tell, close, a media list freed again) and across 1,000 tool runs,
// each after a warm-up so that the allocator's pools are already in place; and the peak resident
// set over one call with a hostile peer (a 4 KiB read answered by a claim of 2^31 - 1 bytes and
// 512 MiB of them) and a hostile tool (200 MB on stdout and 50 MB on stderr for a 2048-byte
// buffer). The figure is the growth in KiB; each case runs once.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "support/media_list.h"
#include "ratio_report.h"
#include "raw_link.h"
#include "reference_agent.h"
#include "support/resident.h"

namespace {

using namespace wrenlink::bench;
using wrenlink::support::resident_kib;

// The peak resident set in KiB since the last reset_peak(), or -1 where the system does not tell.
long peak_kib() {
    std::FILE *f = std::fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long peak = -1;
    while (std::fgets(line, sizeof line, f) != nullptr) {
        if (std::strncmp(line, "VmHWM:", 6) == 0) peak = std::atol(line + 6);
    }
    std::fclose(f);
    return peak;
}

bool reset_peak() {
    const wrenlink::UniqueFd fd(::open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC));
    return fd && ::write(fd.get(), "5", 1) == 1;
}


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
    wrenlink::support::free_media_list(head.next);
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

// The peak over `call` against the resident set before it.
template <class Call>
bool peak_growth(benchmark::State &state, Call call) {
    if (!reset_peak() || resident_kib() < 0 || peak_kib() < 0) {
        state.SkipWithError("no peak resident figure on this system");
        return false;
    }
    const long before = resident_kib();
    const bool ok = call();
    state.counters["library KiB"] = static_cast<double>(peak_kib() - before);
    state.counters["resident_before_KiB"] = static_cast<double>(before);
    if (!ok) state.SkipWithError("the call did not end as it should");
    return ok;
}

// Answers an open, then a read with a header that claims 2^31 - 1 bytes, sends 512 MiB and closes.
void serve_hostile_read(int listener) {
    const wrenlink::UniqueFd fd = accept_one(listener);
    wrenlink::wire::PacketHeader h;
    std::string payload;
    if (!fd || !recv_header(fd.get(), h)) return;
    payload.resize(h.length);
    const std::string id = std::string("\x07\0\0\0", 4);
    if (!recv_exact(fd.get(), payload.data(), payload.size()) ||
        !send_all(fd.get(), wrenlink::wire::packet(wrenlink::wire::op::kFileOpen, id, wrenlink::wire::Crc::OverPayload))) {
        return;
    }
    unsigned char request[kFileRequestSize];
    if (!recv_exact(fd.get(), request, sizeof request)) return;
    unsigned char claim[wrenlink::wire::kHeaderSize];
    wrenlink::wire::put_header(claim, wrenlink::wire::op::kFileRead, 0x7FFFFFFF);
    if (!send_all(fd.get(), claim, sizeof claim)) return;
    static const char zeros[64 * 1024] = {};
    for (long sent = 0; sent < 512L * 1024 * 1024 && send_all(fd.get(), zeros, sizeof zeros); sent += sizeof zeros) {
    }
}

void Memory_hostile_peer(benchmark::State &state) {
    for (auto _ : state) {
        const wrenlink::UniqueFd listener = listen_loopback(0);
        std::thread peer(serve_hostile_read, listener.get());
        NetConnection *conn = NetConnectionOpen("127.0.0.1", port_of(listener.get()));
        NFCFileRef *ref = nullptr;
        if (conn != nullptr && NFCFileRefOpen(conn, "/big", "r", &ref) == 0) {
            std::vector<unsigned char> buffer(4096);
            peak_growth(state, [&] {
                int32_t length = static_cast<int32_t>(buffer.size());
                // The stream ends inside the claimed payload.
                return NFCFileRefRead(conn, ref, buffer.data(), &length) == AgentShortPayload;
            });
            WrenlinkFree(ref);  // the broken stream stops the close at its gate: the handle is a malloc block
        } else {
            state.SkipWithError("no connection to the bench's peer");
        }
        NetConnectionClose(conn);
        peer.join();
    }
}

void Memory_hostile_tool(benchmark::State &state) {
    char output[2048];
    for (auto _ : state) {
        peak_growth(state, [&] {
            std::memset(output, 0, sizeof output);
            AdbCommand(" flood 209715200 52428800", output, sizeof output, true);
            return std::strlen(output) == sizeof output - 1;
        });
    }
}

}  // namespace

BENCHMARK(Memory_agent_exchanges)->Name("Memory/agent_exchanges")->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Memory_tool_runs)->Name("Memory/tool_runs")->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Memory_hostile_peer)->Name("Memory/hostile_peer")->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Memory_hostile_tool)->Name("Memory/hostile_tool")->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);

static const int kMemoryGoals[] = {
    goal("Memory/agent_exchanges", "", Bound::AtMost, 64),  // KiB: flat, within a few pages
    goal("Memory/tool_runs", "", Bound::AtMost, 64),
    goal("Memory/hostile_peer", "", Bound::AtMost, 16 * 1024),  // KiB of peak: 16 MiB
    goal("Memory/hostile_tool", "", Bound::AtMost, 16 * 1024),
};
