#include "agent/services/scan.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "agent/link/connection.h"
#include "agent/link/reply_reader.h"
#include "agent/wire/packets.h"

namespace wrenlink::agent {

namespace {

// The code that tells the caller the event stream broke before the scan had finished. Kept at 22
// (EINVAL), which callers test for; an agent's own code 22 reads the same.
constexpr uint32_t kStreamBroken = 22;

class Callbacks {
public:
    explicit Callbacks(const ScanArgs &a) : args_(a) {}
    void item(const char *text) const {
        if (args_.onFoundItem) args_.onFoundItem(text, args_.userValue);
    }
    void code(uint32_t value) const {
        if (args_.onCode) args_.onCode(value, args_.userValue);
    }
    void progress(int64_t done, int64_t total) const {
        if (args_.onProgress) args_.onProgress(done, total, args_.userValue);
    }

private:
    const ScanArgs &args_;
};

// The payload of the last found item, always NUL-terminated. Only the bytes that the previous,
// longer item left behind are cleared, which leaves the buffer exactly as clearing it whole would.
class ItemBuffer {
public:
    static constexpr std::size_t kCapacity = 2048;
    static_assert(kCapacity <= ReplyReader::kWindow, "a whole item fits in the reader's window");

    // A payload beyond the capacity gives its first 2048 bytes; the rest is dropped.
    bool take(ReplyReader &stream, uint32_t length) {
        const std::size_t keep = std::min<std::size_t>(length, kCapacity);
        if (keep == length) {
            const unsigned char *payload = stream.peek(keep);
            if (payload == nullptr) return false;
            std::memcpy(text_, payload, keep);
            stream.skip(keep);
        } else if (!stream.read_prefix(text_, keep, length)) {
            return false;
        }
        if (used_ > keep) std::memset(text_ + keep, 0, used_ - keep);
        used_ = keep;
        return true;
    }
    const char *text() const { return text_; }

private:
    char text_[kCapacity + 1] = {};
    std::size_t used_ = 0;
};

// What the loop knows of the scan, and how each event changes it.
class ScanState {
public:
    // A code event finishes the scan, and so does progress whose done reaches its total; later
    // progress can unfinish it again. Until an event tells, the scan is unfinished.
    bool finished() const { return done_ >= total_; }

    // Reads the event's payload and tells the caller. False when the payload came up short. Of
    // the header only opcode and length count.
    bool act(const wire::PacketHeader &event, ReplyReader &stream, const Callbacks &tell) {
        switch (event.opcode) {
        case wire::op::kEventProgress: {
            // Kept: always 16 bytes, whatever `length` says, as agents that serve callers send them.
            const unsigned char *payload = stream.peek(16);
            if (payload == nullptr) return false;
            done_ = static_cast<int64_t>(wire::load_u64(payload));
            total_ = static_cast<int64_t>(wire::load_u64(payload + 8));
            stream.skip(16);
            tell.progress(done_, total_);
            return true;
        }
        case wire::op::kEventCode: {
            unsigned char code[4] = {};  // a shorter payload leaves the high bytes 0
            const bool whole = stream.read_prefix(code, std::min<uint32_t>(event.length, 4), event.length);
            done_ = total_;
            if (whole) tell.code(wire::load_u32(code));
            return whole;
        }
        case wire::op::kEventFoundItem:
            if (!item_.take(stream, event.length)) return false;
            tell.item(item_.text());
            return true;
        default:
            // Not skipped: its payload, if any, is read as the next header. Agents send none. Kept:
            // skipping would change the events a caller gets from a stream that sends one.
            return true;
        }
    }

private:
    int64_t done_ = 0;
    int64_t total_ = 1;
    ItemBuffer item_;
};

struct PrivateConnectionDeleter {
    void operator()(NetConnection *conn) const noexcept { destroy_private_connection(conn); }
};
using PrivateConnection = std::unique_ptr<NetConnection, PrivateConnectionDeleter>;

// The exchange of the control operations: a failed send or reply header sticks in sendError.
AgentStatus control(NetConnection *conn, const std::string &packet) {
    if (conn == nullptr) return EINVAL;
    ReplyReader reader(conn);
    wire::PacketHeader reply;
    if (const AgentStatus r = control_request(reader, packet, reply, SendErrorRule::Stored)) return r;
    return reply.status;
}

void run_scan(NetConnection *conn, NDDFoundItemCallback onFoundItem, NDDCodeCallback onCode,
              NDDProgressCallback onProgress, uint64_t userValue) {
    MallocBlock<ScanArgs> args(static_cast<ScanArgs *>(std::malloc(sizeof(ScanArgs))));
    if (!args) {
        if (onCode) onCode(kStreamBroken, userValue);
        return;
    }
    // Closed and freed when the loop ends, so that a scan leaves no descriptor behind.
    const PrivateConnection events(open_private_connection("127.0.0.1", wire::kEventPort));
    *args = ScanArgs{conn, events.get(), onFoundItem, onCode, onProgress, userValue};
    follow_scan_events(args.get());
}

}  // namespace

void follow_scan_events(ScanArgs *args) {
    const Callbacks tell(*args);
    if (args->events == nullptr) {
        tell.code(kStreamBroken);
        return;
    }
    const unsigned char greeting[4] = {};
    (void)send_all(args->events, greeting, sizeof greeting, 0);  // a broken stream shows below

    // One receive brings in as many events as the kernel holds, and an event that fits in the
    // window is read where it lies.
    ReplyReader stream(args->events, ReplyReader::Reach::Ahead);
    ScanState scan;
    bool whole = true;
    while (whole) {
        wire::PacketHeader event;
        // Of the header only opcode and length count: a wrong magic is not looked at.
        if (stream.take_header(event) == Took::Broken) break;  // the stream has ended
        whole = scan.act(event, stream, tell);
    }
    if (!whole || !scan.finished()) tell.code(kStreamBroken);
}

AgentStatus start_scan(NetConnection *conn, const char *unused, NDDFoundItemCallback onFoundItem,
                       NDDCodeCallback onCode, NDDProgressCallback onProgress, uint64_t userValue) {
    if (conn == nullptr) return EINVAL;
    if (const AgentStatus refused = control(conn, make_start_scan_packet(unused))) return refused;
    run_scan(conn, onFoundItem, onCode, onProgress, userValue);
    return 0;
}

AgentStatus stop_scan(NetConnection *conn) { return control(conn, make_stop_scan_packet()); }
AgentStatus pause_scan(NetConnection *conn) { return control(conn, make_pause_scan_packet()); }
AgentStatus resume_scan(NetConnection *conn) { return control(conn, make_resume_scan_packet()); }

AgentStatus erase_file(NetConnection *conn, const char *path) {
    if (path == nullptr) return EINVAL;
    // The packet holds the text's NUL and counts it in `length`.
    return control(conn, make_erase_file_packet(path));
}

}  // namespace wrenlink::agent
