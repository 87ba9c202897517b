// Remote file reads and writes through the reference agent, which serves its files from memory.
//
// NFCFileRefRead against two hand-written clients that send the same 36-byte requests on a raw
// socket and make the same reply checks (magic, a payload no larger than asked, status): one
// receives the payload straight into the caller's buffer, the other into a block of its own
// (kept from call to call) and copies it once, as a read must that leaves the caller's buffer
// untouched when it fails. NFCFileRefWrite against a client that sends the same request, then the
// data, and checks the same reply.
//
// The variants take turns call by call (contest.h), each on a connection of its own, walking through
// the same 16 MiB file at the same step. The library's handle moves on by itself, so at the end of
// the file it is sought back to the start, off the clock.
#include <cstring>
#include <string>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "contest.h"
#include "ratio_report.h"
#include "raw_link.h"
#include "reference_agent.h"

namespace {

using namespace wrenlink;
using namespace wrenlink::bench;

constexpr int32_t kSizes[] = {4 << 10, 64 << 10, 1 << 20};

// The library's side: a connection and a handle on one served file.
class LibraryFile {
public:
    LibraryFile(benchmark::State &state, const char *path, const char *mode) {
        const ReferenceAgent *agent = ReferenceAgent::get();
        if (agent == nullptr) {
            state.SkipWithError("the reference agent could not be started");
            return;
        }
        conn_ = NetConnectionOpen("127.0.0.1", agent->port());
        if (conn_ == nullptr || NFCFileRefOpen(conn_, path, mode, &ref_) != 0) state.SkipWithError("open failed");
    }
    ~LibraryFile() {
        if (ref_ != nullptr) NFCFileRefClose(conn_, ref_);
        NetConnectionClose(conn_);
    }
    bool ok() const { return ref_ != nullptr; }
    NetConnection *conn() const { return conn_; }
    NFCFileRef *ref() const { return ref_; }

    // Moves on by a step, back to the start by a seek when the next step would pass the end.
    void advance(int64_t step) {
        position_ += step;
        if (position_ + step <= kFileSize) return;
        NFCFileRefSeek(conn_, ref_, 0, 0);
        position_ = 0;
    }

private:
    NetConnection *conn_ = nullptr;
    NFCFileRef *ref_ = nullptr;
    int64_t position_ = 0;
};

// The raw side: a socket with the library's options and a remote id of its own.
class RawFile {
public:
    RawFile(benchmark::State &state, const char *path, const char *mode) {
        const ReferenceAgent *agent = ReferenceAgent::get();
        if (agent == nullptr) {
            state.SkipWithError("the reference agent could not be started");
            return;
        }
        fd_ = connect_loopback(agent->port());
        if (fd_) id_ = raw_open(fd_.get(), path, mode);
        if (id_ == 0) state.SkipWithError("raw open failed");
    }
    bool ok() const { return id_ != 0; }
    int fd() const { return fd_.get(); }
    uint32_t id() const { return id_; }
    int64_t offset() const { return offset_; }
    void advance(int64_t step) { offset_ = offset_ + 2 * step <= kFileSize ? offset_ + step : 0; }

private:
    UniqueFd fd_;
    uint32_t id_ = 0;
    int64_t offset_ = 0;
};

enum class Into { Buffer, OwnBlock };

// One raw read exchange; false on any failure.
bool raw_read(const RawFile &file, int32_t size, unsigned char *buffer, Into into, std::vector<unsigned char> &block) {
    unsigned char request[kFileRequestSize];
    file_request(request, wire::op::kFileRead, 16, file.id(), file.offset(), size);
    wire::PacketHeader reply;
    if (!send_all(file.fd(), request, sizeof request) || !recv_header(file.fd(), reply)) return false;
    if (reply.length > static_cast<uint32_t>(size)) return false;  // would overrun the buffer
    // The block sits apart from the buffer by more than a cache line within a 4 KiB page, as two
    // unrelated allocations mostly do; placed at the same offset its copy would be slowed by the
    // layout alone (4 KiB aliasing), and the baseline with it.
    constexpr std::size_t kApart = 256;
    if (into == Into::Buffer) {
        if (!recv_exact(file.fd(), buffer, reply.length)) return false;
    } else {
        if (block.size() < kApart + reply.length) block.resize(kApart + reply.length);
        if (!recv_exact(file.fd(), block.data() + kApart, reply.length)) return false;
    }
    if (reply.status != 0) return false;
    if (into == Into::OwnBlock) std::memcpy(buffer, block.data() + kApart, reply.length);
    return reply.length == static_cast<uint32_t>(size);
}

bool raw_write(const RawFile &file, const std::vector<unsigned char> &data) {
    const auto size = static_cast<int32_t>(data.size());
    unsigned char request[kFileRequestSize];
    file_request(request, wire::op::kFileWrite, 16 + static_cast<uint32_t>(size), file.id(), file.offset(), size);
    wire::PacketHeader reply;
    // The header waits for its data, as the library's does: sent alone, it wakes the agent twice.
    return send_all(file.fd(), request, sizeof request, data.size() > 0) && send_all(file.fd(), data.data(), data.size()) &&
           recv_header(file.fd(), reply) && reply.status == 0;
}

void FileRead(benchmark::State &state, int32_t size) {
    LibraryFile library(state, "/read.bin", "r");
    RawFile direct(state, "/read.bin", "r"), copying(state, "/read.bin", "r");
    std::vector<unsigned char> buffer(static_cast<std::size_t>(size)), block;
    Contest contest(state, {"library", "raw_direct", "raw_copy"});
    if (!library.ok() || !direct.ok() || !copying.ok()) return;
    contest.run([&](std::size_t variant) {
        if (variant == 0) {
            int32_t length = size;
            const bool ok = NFCFileRefRead(library.conn(), library.ref(), buffer.data(), &length) == 0 && length == size;
            contest.untimed([&] { library.advance(size); });
            return ok;
        }
        RawFile &raw = variant == 1 ? direct : copying;
        const bool ok = raw_read(raw, size, buffer.data(), variant == 1 ? Into::Buffer : Into::OwnBlock, block);
        raw.advance(size);
        return ok;
    });
    contest.report_rate(size / 1e6, "MB/s");
}

void FileWrite(benchmark::State &state, int32_t size) {
    LibraryFile library(state, "/write.bin", "r+");
    RawFile raw(state, "/write.bin", "r+");
    const std::vector<unsigned char> data(static_cast<std::size_t>(size), 0x5a);
    Contest contest(state, {"library", "raw"});
    if (!library.ok() || !raw.ok()) return;
    contest.run([&](std::size_t variant) {
        if (variant == 1) {
            const bool ok = raw_write(raw, data);
            raw.advance(size);
            return ok;
        }
        const bool ok = NFCFileRefWrite(library.conn(), library.ref(), data.data(), size) == 0;
        contest.untimed([&] { library.advance(size); });
        return ok;
    });
    contest.report_rate(size / 1e6, "MB/s");
}

int register_all() {
    for (const int32_t size : kSizes) {
        benchmark::RegisterBenchmark(("FileRead/" + std::to_string(size)).c_str(), FileRead, size)->UseRealTime();
        benchmark::RegisterBenchmark(("FileWrite/" + std::to_string(size)).c_str(), FileWrite, size)->UseRealTime();
    }
    return 0;
}

}  // namespace

static const int kFiles[] = {
    register_all(),
    goal("FileRead/4096", "raw_direct", Bound::AtLeast, 0.9),
    goal("FileRead/65536", "raw_direct", Bound::AtLeast, 0.9),
    goal("FileRead/4096", "raw_copy", Bound::AtLeast, 0.95),
    goal("FileRead/65536", "raw_copy", Bound::AtLeast, 0.95),
    goal("FileRead/1048576", "raw_copy", Bound::AtLeast, 0.95),
    goal("FileWrite/1048576", "raw", Bound::AtLeast, 0.9),
};
