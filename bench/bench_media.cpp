// Media lists: NMCListImages of 100,000 items from the canned agent, against a raw client that sends
// the same request, makes the same header checks and builds the same list (a malloc block for each
// record and each of its three texts, every read checked against the payload's end). Then the time
// to free such a list: the library's with WrenlinkFree, the raw client's with free.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "support/media_list.h"
#include "canned_agent.h"
#include "contest.h"
#include "ratio_report.h"
#include "raw_link.h"

namespace {

using namespace wrenlink;
using namespace wrenlink::bench;


// A hand-written parser of one list payload into records hung on `head`; the count, or -1.
class RawList {
public:
    RawList(const unsigned char *at, std::size_t size) : at_(at), end_(at + size) {}

    long parse(__MediaBean &head) {
        __MediaBean **link = &head.next;
        long items = 0;
        while (at_ < end_) {
            auto *record = static_cast<__MediaBean *>(std::calloc(1, sizeof(__MediaBean)));
            *link = record;
            link = &record->next;
            uint32_t v1 = 0;
            uint64_t v2 = 0, v3 = 0;
            if (!u32(v1) || !text(record->text1) || !u64(v2) || !text(record->text2) || !u64(v3) ||
                !text(record->text3)) {
                return -1;
            }
            record->value1 = v1;
            record->value2 = v2;
            record->value3 = v3;
            ++items;
        }
        return items;
    }

private:
    bool u32(uint32_t &v) {
        if (end_ - at_ < 4) return false;
        v = wire::load_u32(at_);
        at_ += 4;
        return true;
    }
    bool u64(uint64_t &v) {
        if (end_ - at_ < 8) return false;
        v = wire::load_u64(at_);
        at_ += 8;
        return true;
    }
    bool text(char *&out) {
        const auto *nul = static_cast<const unsigned char *>(std::memchr(at_, 0, static_cast<std::size_t>(end_ - at_)));
        if (nul == nullptr) return false;
        const auto size = static_cast<std::size_t>(nul - at_) + 1;
        out = static_cast<char *>(std::malloc(size));
        std::memcpy(out, at_, size);
        at_ += size;
        return true;
    }

    const unsigned char *at_;
    const unsigned char *end_;
};

long raw_list(int fd, __MediaBean &head, std::vector<unsigned char> &payload) {
    wire::PacketHeader reply;
    if (!send_all(fd, wire::packet(wire::op::kListImage, {}, wire::Crc::Zero)) || !recv_header(fd, reply) || reply.status != 0) return -1;
    payload.resize(reply.length);
    if (!recv_exact(fd, payload.data(), payload.size())) return -1;
    return RawList(payload.data(), payload.size()).parse(head);
}

// Either side's list, with the release that goes with it.
class Lister {
public:
    Lister(benchmark::State &state, bool library) : library_(library) {
        const CannedAgent *agent = CannedAgent::get();
        if (agent == nullptr) {
            state.SkipWithError("the canned agent could not listen (is port 10244 taken?)");
            return;
        }
        if (library_) conn_ = NetConnectionOpen("127.0.0.1", agent->port());
        else fd_ = connect_loopback(agent->port());
    }
    ~Lister() { NetConnectionClose(conn_); }
    bool ok() const { return conn_ != nullptr || fd_; }

    // The whole list on `head`; false unless it holds every item.
    bool list(__MediaBean &head) {
        head = __MediaBean{};
        if (!library_) return raw_list(fd_.get(), head, payload_) == CannedAgent::kMediaItems;
        uint32_t count = 0;
        return NMCListImages(conn_, &head, &count) == 0 && count == CannedAgent::kMediaItems;
    }
    void release(__MediaBean &head) const { support::free_media_list(head.next, library_ ? WrenlinkFree : std::free); }

private:
    bool library_;
    NetConnection *conn_ = nullptr;
    UniqueFd fd_;
    std::vector<unsigned char> payload_;
};

// The list's items per second, its freeing outside the clock.
void MediaList(benchmark::State &state) {
    Lister sides[] = {Lister(state, true), Lister(state, false)};
    Contest contest(state, {"library", "raw_parse"});
    if (!sides[0].ok() || !sides[1].ok()) return;
    contest.run([&](std::size_t variant) {
        __MediaBean head;
        const bool whole = sides[variant].list(head);
        contest.untimed([&] { sides[variant].release(head); });
        return whole;
    });
    contest.report_rate(CannedAgent::kMediaItems / 1e6, "M/s");
}

// The time to free a whole list, its making outside the clock.
void MediaFree(benchmark::State &state) {
    Lister sides[] = {Lister(state, true), Lister(state, false)};
    Contest contest(state, {"library", "raw_parse"});
    if (!sides[0].ok() || !sides[1].ok()) return;
    contest.run([&](std::size_t variant) {
        __MediaBean head;
        bool whole = false;
        contest.untimed([&] { whole = sides[variant].list(head); });
        sides[variant].release(head);
        return whole;
    });
    contest.report_time(true);
}

}  // namespace

BENCHMARK(MediaList)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(MediaFree)->UseRealTime()->Unit(benchmark::kMillisecond);
