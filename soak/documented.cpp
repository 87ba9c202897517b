#include "soak/documented.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <map>
#include <vector>

#include "Wrenlink/Wrenlink.h"

namespace wrenlink::soak {

namespace {

enum class Naming { Status, Number, Handle };

struct Table {
    std::vector<int64_t> ok;
    std::vector<int64_t> failed;
    Naming naming = Naming::Number;
};

using Values = std::initializer_list<int64_t>;

// What a transfer on a loopback connection gives when its peer goes or the watchdog closes it. No
// signal handler is installed, so EINTR cannot come, and keepalive would take hours, so neither
// can ETIMEDOUT: either would be a fault.
constexpr Values kTransfer = {ECONNRESET, EBADF, EPIPE};

Table agent(Values specific, Values refusals) {
    // Every agent call: the reply codes, a NULL argument, no memory, a failed transfer (or the
    // stored error of an earlier one), then what the call adds and what the reference agent
    // answers to a well-formed request of this kind.
    Table t{{0}, {AgentBadMagic, AgentShortPayload, EINVAL, ENOMEM}, Naming::Status};
    for (const Values part : {kTransfer, specific, refusals}) t.failed.insert(t.failed.end(), part.begin(), part.end());
    return t;
}

Table adb(Values ok, Values failed) { return Table{ok, failed, Naming::Number}; }

const std::map<std::string, Table, std::less<>> &tables() {
    static const std::map<std::string, Table, std::less<>> all = [] {
        std::map<std::string, Table, std::less<>> t;
        t["NetConnectionOpen"] = Table{{1}, {0}, Naming::Handle};
        t["TestPing"] = adb({0}, {-2, -3, -4});
        t["NFCFileRefOpen"] = agent({AgentBadCrc}, {ENOENT, EACCES, EISDIR, EPERM, EEXIST, EMFILE});
        t["NFCFileRefRead"] = agent({EMSGSIZE}, {EIO});
        t["NFCFileRefWrite"] = agent({}, {EIO, ENOSPC});
        t["NFCFileRefTell"] = agent({AgentBadCrc}, {});
        t["NFCFileRefSeek"] = agent({AgentBadCrc}, {});
        t["NFCFileRefClose"] = agent({}, {EIO});
        for (const char *list : {"NMCListImages", "NMCListMusics", "NMCListVideo"}) t[list] = agent({}, {});
        t["NDDStartScan"] = agent({}, {EBUSY});
        // Of the scan's start, only these: no payload is read, so no short payload.
        std::erase(t["NDDStartScan"].failed, static_cast<int64_t>(AgentShortPayload));
        t["NDDStartScan.onCode"] = Table{{0, kProgressComplete}, {22, ECANCELED}, Naming::Number};

        t["AdbCommand"] = adb({0}, {});
        t["AdbGetPhoneList"] = adb({0}, {});
        t["AdbGetDevicesList"] = adb({0}, {-1});
        t["AdbRereshDevInfo"] = adb({0}, {1});
        for (const char *read : {"AdbGetPhoneSoftVersion", "AdbGetPhoneProductModel", "AdbGetPhoneManufacture"})
            t[read] = adb({0}, {1, -1});
        t["AdbShellCommand"] = adb({1}, {-1});
        t["AdbPushFile"] = adb({0}, {-1, 1, 2});
        t["AdbPullFileEx"] = adb({0}, {-1});
        t["AdbListPackege3"] = adb({0}, {});
        t["AdbListPackegeSys"] = adb({0}, {});
        return t;
    }();
    return all;
}

bool holds(const std::vector<int64_t> &values, int64_t value) {
    for (const int64_t v : values)
        if (v == value) return true;
    return false;
}

std::string status_name(int64_t value) {
    switch (static_cast<uint32_t>(value)) {
    case AgentSuccess: return "0";
    case AgentBadMagic: return "AgentBadMagic";
    case AgentShortPayload: return "AgentShortPayload";
    case AgentBadCrc: return "AgentBadCrc";
    default: break;
    }
    const char *name = value > 0 && value < 4096 ? ::strerrorname_np(static_cast<int>(value)) : nullptr;
    return name != nullptr ? name : std::to_string(value);
}

}  // namespace

bool has_table(std::string_view call) { return tables().find(call) != tables().end(); }

Verdict judge(std::string_view call, int64_t value) {
    const auto it = tables().find(call);
    if (it == tables().end()) return Verdict::Undocumented;
    if (holds(it->second.ok, value)) return Verdict::Ok;
    return holds(it->second.failed, value) ? Verdict::Failed : Verdict::Undocumented;
}

std::string value_name(std::string_view call, int64_t value) {
    if (call == "NDDStartScan.onCode") {
        if (value == kNoCode) return "no code";
        if (value == kTwoCodes) return "two codes";
        if (value == kProgressComplete) return "no code, progress complete";
    }
    const auto it = tables().find(call);
    const Naming naming = it == tables().end() ? Naming::Number : it->second.naming;
    switch (naming) {
    case Naming::Status: return status_name(value);
    case Naming::Handle: return value != 0 ? "handle" : "NULL";
    case Naming::Number: break;
    }
    return std::to_string(value);
}

}  // namespace wrenlink::soak
