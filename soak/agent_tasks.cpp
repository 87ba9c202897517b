// The agent half's tasks. Each runs on one connection of the phone's pool; a call that fails or
// that the watchdog cut spoils the connection, which then goes back closed.
#include <algorithm>
#include <cstring>
#include <map>

#include "soak/phone_tree.h"
#include "soak/tasks.h"
#include "support/media_list.h"

namespace wrenlink::soak {

namespace {

constexpr auto kFileBytes = static_cast<int64_t>(kFileSize);
constexpr int64_t kLargestPiece = 16 * 1024;

// A connection taken from the pool for one task, and given back at its end: kept when every call
// went well and every check held.
class Session {
public:
    Session(Context &c, std::size_t phone) : c_(c), phone_(phone), conn_(c.conns.take(phone)) {}
    ~Session() { c_.conns.give_back(phone_, conn_, usable_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    bool open() const { return conn_ != nullptr; }
    NetConnection *conn() const { return conn_; }
    // One call under the watchdog: whether its result is its ok one (the data, if any, arrived).
    template <class Call>
    bool call(const char *name, Call &&run, Half half = Half::Agent) {
        Watched watched(c_.dog, c_.ledger, name, static_cast<int>(phone_), half, conn_);
        const bool ok = watched.end(static_cast<int64_t>(run())) == Verdict::Ok;
        if (!ok || watched.cut()) usable_ = false;
        return ok;
    }
    void corrupt(const char *call, const std::string &what) {
        c_.ledger.corrupt(call, static_cast<int>(phone_), what);
        usable_ = false;
    }
    bool good() const { return usable_; }

private:
    Context &c_;
    std::size_t phone_;
    NetConnection *conn_;
    bool usable_ = true;
};

// The calls on one open file, with the agent's position as it must be after each.
class FileOps {
public:
    FileOps(Context &c, Session &s, NFCFileRef *ref, FileModel &model) : c_(c), s_(s), ref_(ref), m_(model) {}

    // After an open that truncated: the whole file, piece by piece; then the model holds.
    bool write_whole() {
        for (auto &b : m_.bytes) b = static_cast<unsigned char>(c_.rng());
        for (int64_t at = 0; at < kFileBytes; at += kLargestPiece)
            if (!write_here(m_.bytes.data() + at, static_cast<int32_t>(kLargestPiece))) return false;
        m_.known = true;
        return true;
    }

    bool random_step() {
        switch (c_.pick(0, 4)) {
        case 0: return read_at(c_.pick<int64_t>(0, kFileBytes), c_.pick<int64_t>(1, kLargestPiece));
        case 1: {
            const int64_t n = c_.pick<int64_t>(1, kLargestPiece);
            return write_at(c_.pick<int64_t>(0, kFileBytes - n), n);
        }
        case 2: return seek(-c_.pick<int64_t>(0, kFileBytes), SEEK_END, 0) && tell();
        case 3: {
            const int64_t by = c_.pick<int64_t>(-position_, kFileBytes - position_);
            return seek(by, SEEK_CUR, position_) && tell();
        }
        default: return tell();
        }
    }

    // Closes the file; on a spoilt connection after closing the connection, which clears a
    // stored error, so that the handle is released all the same.
    bool close() {
        if (!s_.good()) NetConnectionClose(s_.conn());
        return s_.call("NFCFileRefClose", [&] { return NFCFileRefClose(s_.conn(), ref_); });
    }

private:
    // Moves the agent's position to from + offset (from: 0, the current position or the end).
    bool seek(int64_t offset, int whence, int64_t from) {
        const int64_t base = whence == SEEK_END ? kFileBytes : from;
        if (!s_.call("NFCFileRefSeek", [&] { return NFCFileRefSeek(s_.conn(), ref_, offset, whence); })) return false;
        position_ = base + offset;
        return true;
    }

    bool tell() {
        int64_t at = -1;
        if (!s_.call("NFCFileRefTell", [&] { return NFCFileRefTell(s_.conn(), ref_, &at); })) return false;
        if (at == position_) return true;
        s_.corrupt("NFCFileRefTell", "position " + std::to_string(at) + " where " + std::to_string(position_) + " was due");
        return false;
    }

    bool read_at(int64_t offset, int64_t count) {
        if (!seek(offset, SEEK_SET, 0)) return false;
        std::vector<unsigned char> buffer(static_cast<std::size_t>(count));
        auto length = static_cast<int32_t>(count);
        if (!s_.call("NFCFileRefRead", [&] { return NFCFileRefRead(s_.conn(), ref_, buffer.data(), &length); }))
            return false;
        const int64_t due = std::min(count, kFileBytes - offset);
        if (length != due) {
            s_.corrupt("NFCFileRefRead", std::to_string(length) + " bytes at " + std::to_string(offset) + " where " +
                                             std::to_string(due) + " were due");
            return false;
        }
        position_ = offset + length;
        if (std::memcmp(buffer.data(), m_.bytes.data() + offset, static_cast<std::size_t>(length)) == 0) return true;
        s_.corrupt("NFCFileRefRead", std::to_string(length) + " bytes at " + std::to_string(offset) + " differ from those written");
        return false;
    }

    bool write_at(int64_t offset, int64_t count) {
        if (!seek(offset, SEEK_SET, 0)) return false;
        std::vector<unsigned char> bytes(static_cast<std::size_t>(count));
        for (auto &b : bytes) b = static_cast<unsigned char>(c_.rng());
        if (!write_here(bytes.data(), static_cast<int32_t>(count))) return false;
        std::copy(bytes.begin(), bytes.end(), m_.bytes.begin() + offset);
        return true;
    }

    // A write at the current position. After one that failed, nobody knows what the file holds.
    bool write_here(const unsigned char *bytes, int32_t count) {
        if (!s_.call("NFCFileRefWrite", [&] { return NFCFileRefWrite(s_.conn(), ref_, bytes, count); })) {
            m_.known = false;
            return false;
        }
        position_ += count;
        return true;
    }

    Context &c_;
    Session &s_;
    NFCFileRef *ref_;
    FileModel &m_;
    int64_t position_ = 0;
};

struct ScanSeen {
    std::map<std::string, uint64_t> found;  // phone path -> size
    int codes = 0;
    uint32_t code = 0;
    int64_t done = 0, total = -1;  // the last progress
    bool strangeItem = false;

    // What the loop reported: its code; without one, that the last progress had reached its
    // total (the scan finished all the same) or not.
    int64_t outcome() const {
        if (codes > 1) return kTwoCodes;
        if (codes == 1) return code;
        return total >= 0 && done >= total ? kProgressComplete : kNoCode;
    }
};

void on_item(const char *item, uint64_t seen) {
    auto *s = reinterpret_cast<ScanSeen *>(seen);
    std::string path;
    uint64_t size = 0;
    if (parse_found_item(item, path, size)) {
        s->found[path] = size;
    } else {
        s->strangeItem = true;
    }
}

void on_progress(int64_t done, int64_t total, uint64_t seen) {
    auto *s = reinterpret_cast<ScanSeen *>(seen);
    s->done = done;
    s->total = total;
}

void on_code(uint32_t code, uint64_t seen) {
    auto *s = reinterpret_cast<ScanSeen *>(seen);
    ++s->codes;
    s->code = code;
}

}  // namespace

bool ping_task(Context &c, std::size_t phone) {
    Session s(c, phone);
    return s.open() && s.call("TestPing", [&] { return TestPing(s.conn()); });
}

bool file_task(Context &c, std::size_t phone) {
    Session s(c, phone);
    if (!s.open()) return false;
    FileModel &model = c.files.at(phone);
    const bool fresh = !model.known;
    const std::string path = "/soak/file-" + std::to_string(c.thread) + ".bin";
    NFCFileRef *ref = nullptr;
    // A file nobody knows is opened with "w+", which truncates it, and written whole again.
    if (!s.call("NFCFileRefOpen", [&] { return NFCFileRefOpen(s.conn(), path.c_str(), fresh ? "w+" : "r+", &ref); }))
        return false;
    FileOps ops(c, s, ref, model);
    bool ok = !fresh || ops.write_whole();
    for (int step = 0, steps = c.pick(3, 8); ok && step < steps; ++step) ok = ops.random_step();
    ok = ops.close() && ok;
    return ok && s.good();
}

bool media_task(Context &c, std::size_t phone) {
    using List = AgentStatus (*)(NetConnection *, __MediaBean *, uint32_t *);
    static constexpr struct {
        const char *name;
        List list;
        MediaKind kind;
    } kLists[] = {{"NMCListImages", NMCListImages, MediaKind::Images},
                  {"NMCListMusics", NMCListMusics, MediaKind::Musics},
                  {"NMCListVideo", NMCListVideo, MediaKind::Videos}};
    const auto &which = kLists[c.pick(0, 2)];
    Session s(c, phone);
    if (!s.open()) return false;
    __MediaBean head{};
    uint32_t count = 0;
    const bool listed = s.call(which.name, [&] { return which.list(s.conn(), &head, &count); });
    std::string why;
    if (listed && !media_list_matches(which.kind, head.next, count, why)) s.corrupt(which.name, why);
    support::free_media_list(head.next);
    return listed && s.good();
}

bool scan_task(Context &c, std::size_t phone) {
    const std::unique_lock scanning(c.scanLock, std::try_to_lock);
    if (!scanning) return ping_task(c, phone);  // another thread's scan holds the event port
    const Phone &p = c.farm.phone(phone);
    {
        // The machine's event port leads to this phone's agent from now on.
        Watched forward(c.dog, c.ledger, "AdbCommand", static_cast<int>(phone), Half::Adb);
        char output[256] = {};
        const std::string line = " -s " + p.serial + " forward tcp:10244 localabstract:" + p.eventsName;
        forward.end(AdbCommand(line.c_str(), output, sizeof output, true));
    }
    Session s(c, phone);
    if (!s.open()) return false;
    ScanSeen seen;
    const auto began = Clock::now();
    // The watchdog's close releases the start request only: after its reply the scan goes on to
    // the agent's end, or to the event connection's drop.
    const bool ran = s.call(
        "NDDStartScan",
        [&] { return NDDStartScan(s.conn(), nullptr, on_item, on_code, on_progress, reinterpret_cast<uint64_t>(&seen)); },
        Half::Scan);
    if (!ran) return false;
    const int64_t outcome = seen.outcome();
    c.ledger.record("NDDStartScan.onCode", static_cast<int>(phone), began, outcome, false);
    if (outcome != 0 && outcome != kProgressComplete) return false;
    std::string why;
    if (seen.strangeItem) s.corrupt("NDDStartScan", "a found item not of the form size, time, type, path");
    else if (!scan_found_tree(seen.found, why)) s.corrupt("NDDStartScan", why);
    return s.good();
}

}  // namespace wrenlink::soak
