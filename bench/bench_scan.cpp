// Scan events: a million found items (64-byte texts) with progress between them, from the canned
// agent, delivered to the callbacks by NDDStartScan against a raw reader that makes the same start
// request, opens the same event connection and parses the same stream into the same callbacks.
// Like the library, the raw reader hands each item over in a 2048-byte buffer that looks cleared
// (it clears only what a longer previous item left behind).
#include <sys/socket.h>

#include <cstring>
#include <memory>

#include "Wrenlink/Wrenlink.h"
#include "canned_agent.h"
#include "contest.h"
#include "ratio_report.h"
#include "raw_link.h"

namespace {

using namespace wrenlink;
using namespace wrenlink::bench;

// What the callbacks saw; a whole scan must show every event once and the final code 0.
struct Tally {
    uint64_t items = 0, progress = 0, codes = 0, lastCode = ~0u, touched = 0;
    bool whole() const {
        return items == CannedAgent::kScanItems && progress == CannedAgent::kScanItems / CannedAgent::kProgressEvery &&
               codes == 1 && lastCode == 0;
    }
};

void on_item(const char *item, uint64_t user) {
    auto *t = reinterpret_cast<Tally *>(user);
    ++t->items;
    t->touched += static_cast<unsigned char>(item[CannedAgent::kItemText - 2]);
}
void on_code(uint32_t code, uint64_t user) {
    auto *t = reinterpret_cast<Tally *>(user);
    ++t->codes;
    t->lastCode = code;
}
void on_progress(int64_t, int64_t, uint64_t user) { ++reinterpret_cast<Tally *>(user)->progress; }

// A hand-written reader of the event stream: one buffer filled by large receives, events parsed in
// place, each callback made as the library makes it.
class RawEventReader {
public:
    explicit RawEventReader(int fd) : fd_(fd) {}

    // Reads events until the stream ends; false when it broke off inside an event, held one that
    // does not fit, or ended before the scan was finished (where the library reports code 22).
    bool run(Tally &tally) {
        const uint64_t userValue = reinterpret_cast<uint64_t>(&tally);
        int64_t done = 0, total = 1;
        while (fill(wire::kHeaderSize)) {
            const wire::PacketHeader header = wire::decode_header(buffer_.get() + begin_);
            const uint32_t length = header.length;
            const uint32_t opcode = header.opcode;
            uint32_t payload = 0;  // what the event takes from the stream after its header
            if (opcode == wire::op::kEventFoundItem) payload = length;
            if (opcode == wire::op::kEventProgress) payload = 16;  // whatever `length` says
            if (opcode == wire::op::kEventCode) payload = length;
            if (payload > kItemCapacity || (opcode == wire::op::kEventCode && payload > 4)) return false;
            if (!fill(wire::kHeaderSize + payload)) return false;
            const unsigned char *p = buffer_.get() + begin_ + wire::kHeaderSize;
            begin_ += wire::kHeaderSize + payload;
            if (opcode == wire::op::kEventFoundItem) {
                std::memcpy(item_, p, length);
                if (used_ > length) std::memset(item_ + length, 0, used_ - length);
                used_ = length;
                on_item(item_, userValue);
            } else if (opcode == wire::op::kEventProgress) {
                done = static_cast<int64_t>(wire::load_u64(p));
                total = static_cast<int64_t>(wire::load_u64(p + 8));
                on_progress(done, total, userValue);
            } else if (opcode == wire::op::kEventCode) {
                unsigned char code[4] = {};
                std::memcpy(code, p, length);
                done = total;
                on_code(wire::load_u32(code), userValue);
            }
        }
        return begin_ == end_ && done >= total;
    }

private:
    static constexpr std::size_t kCapacity = 64 * 1024;
    static constexpr uint32_t kItemCapacity = 2048;

    // Makes n bytes from begin_ on available; false when the stream ends first.
    bool fill(std::size_t n) {
        if (end_ - begin_ >= n) return true;
        std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        while (end_ < n) {
            const ssize_t got = ::recv(fd_, buffer_.get() + end_, kCapacity - end_, 0);
            if (got <= 0) return false;
            end_ += static_cast<std::size_t>(got);
        }
        return true;
    }

    int fd_;
    std::unique_ptr<unsigned char[]> buffer_{new unsigned char[kCapacity]};
    std::size_t begin_ = 0, end_ = 0;
    char item_[kItemCapacity + 1] = {};
    std::size_t used_ = 0;
};

bool library_scan(NetConnection *conn, Tally &tally) {
    return NDDStartScan(conn, nullptr, on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&tally)) == 0;
}

bool raw_scan(int control, Tally &tally) {
    wire::PacketHeader reply;
    if (!send_all(control, wire::packet(wire::op::kStartScan, {}, wire::Crc::Zero)) || !recv_header(control, reply) ||
        reply.status != 0) {
        return false;
    }
    const UniqueFd events = connect_loopback(wire::kEventPort);
    const unsigned char greeting[4] = {};
    return events && send_all(events.get(), greeting, sizeof greeting) && RawEventReader(events.get()).run(tally);
}

void ScanEvents(benchmark::State &state) {
    CannedAgent *agent = CannedAgent::get();
    if (agent == nullptr) {
        state.SkipWithError("the canned agent could not listen (is port 10244 taken?)");
        return;
    }
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent->port());
    const UniqueFd control = connect_loopback(agent->port());
    Contest contest(state, {"library", "raw_reader"});
    if (conn != nullptr && control) {
        contest.run([&](std::size_t variant) {
            Tally tally;
            const bool ok = variant == 0 ? library_scan(conn, tally) : raw_scan(control.get(), tally);
            return ok && tally.whole();
        });
    }
    NetConnectionClose(conn);
    contest.report_rate(static_cast<double>(CannedAgent::kScanEvents) / 1e6, "M/s");
}

}  // namespace

BENCHMARK(ScanEvents)->UseRealTime()->Unit(benchmark::kMillisecond);

static const int kScanGoals[] = {
    goal("ScanEvents", "raw_reader", Bound::AtLeast, 0.8),
    goal("ScanEvents", "", Bound::AtLeast, 2.0),  // million events per second
};
