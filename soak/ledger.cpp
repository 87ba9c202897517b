#include "soak/ledger.h"

#include <algorithm>

namespace wrenlink::soak {

namespace {

// Findings are counted all, but only the first ones are kept for the report: the memory of a
// long soak must not grow with them.
constexpr std::size_t kFindingsKept = 40;
// A closed window is kept as long as a call that ran during it may still return.
constexpr auto kWindowKept = std::chrono::minutes(2);

double seconds_since(Clock::time_point begin, Clock::time_point end) {
    return std::chrono::duration<double>(end - begin).count();
}

}  // namespace

const char *fault_name(FaultKind kind) {
    switch (kind) {
    case FaultKind::Unplug: return "phone unplugged";
    case FaultKind::ServerKill: return "adb server killed";
    case FaultKind::AgentKill: return "agent killed";
    case FaultKind::Stall: return "phone stalled";
    case FaultKind::ForwardRemoved: return "forward removed";
    }
    return "?";
}

void count_result(ResultCounts &counts, const std::string &call, int64_t value, bool cut, double seconds) {
    ++counts.made;
    if (cut) ++counts.cut;
    counts.longestSeconds = std::max(counts.longestSeconds, seconds);
    switch (judge(call, value)) {
    case Verdict::Ok: ++counts.ok; break;
    case Verdict::Failed: ++counts.failed[value_name(call, value)]; break;
    case Verdict::Undocumented: ++counts.undocumented[value_name(call, value)]; break;
    }
}

void Ledger::record(const std::string &call, int phone, Clock::time_point begin, int64_t value, bool cut) {
    const auto end = Clock::now();
    const double seconds = seconds_since(begin, end);
    std::lock_guard lock(mutex_);
    ++totals_.calls;
    count_result(calls_[call], call, value, cut, seconds);
    if (judge(call, value) == Verdict::Undocumented) {
        ++totals_.undocumented;
        if (findings_.size() < kFindingsKept)
            findings_.push_back("undocumented: " + call + " gave " + value_name(call, value) + " on phone " +
                                std::to_string(phone));
    }
    bool hit[kFaultKinds] = {};
    for (const Window &w : windows_)
        if (held_during(w, phone, begin, end)) hit[static_cast<int>(w.kind)] = true;
    for (int k = 0; k < kFaultKinds; ++k) {
        if (!hit[k]) continue;
        ++faults_[k].callsHit;
        count_result(faults_[k].results, call, value, cut, seconds);
    }
}

void Ledger::corrupt(const std::string &call, int phone, const std::string &what) {
    std::lock_guard lock(mutex_);
    ++totals_.corrupt;
    if (findings_.size() < kFindingsKept)
        findings_.push_back("corrupt: " + call + " on phone " + std::to_string(phone) + ": " + what);
}

void Ledger::hang(const std::string &call, int phone, double seconds) {
    std::lock_guard lock(mutex_);
    ++totals_.hangs;
    if (findings_.size() < kFindingsKept)
        findings_.push_back("hang: " + call + " on phone " + std::to_string(phone) + " still waiting after " +
                            std::to_string(static_cast<int>(seconds)) + " s");
}

void Ledger::crash(const std::string &what) {
    std::lock_guard lock(mutex_);
    ++totals_.crashes;
    if (findings_.size() < kFindingsKept) findings_.push_back("crash: " + what);
}

void Ledger::checked_apart(const std::string &call, const std::string &value, int phone, Clock::time_point begin,
                           bool intact) {
    const auto end = Clock::now();
    std::lock_guard lock(mutex_);
    ApartCounts &counts = apart_[call + " " + value];
    if (intact) {
        ++counts.intact;
        return;
    }
    ++counts.differs;
    const bool faultNear = std::any_of(windows_.begin(), windows_.end(),
                                       [&](const Window &w) { return held_during(w, phone, begin, end); });
    if (!faultNear) ++counts.differsWithoutFault;
}

void Ledger::set_leaked(long leaked) {
    std::lock_guard lock(mutex_);
    totals_.leaked = leaked;
}

int Ledger::begin_fault(FaultKind kind, int phone) {
    std::lock_guard lock(mutex_);
    ++totals_.faults;
    ++faults_[static_cast<int>(kind)].injected;
    const auto now = Clock::now();
    prune(now);
    windows_.push_back(Window{nextFault_, kind, phone, now, Clock::time_point::max()});
    return nextFault_++;
}

void Ledger::restored(int id) {
    std::lock_guard lock(mutex_);
    for (Window &w : windows_)
        if (w.id == id) w.restored = true;
}

void Ledger::close_restored_faults(const std::vector<bool> &healthy, Clock::time_point lookBegan) {
    const bool all = std::all_of(healthy.begin(), healthy.end(), [](bool h) { return h; });
    const auto now = Clock::now();
    std::lock_guard lock(mutex_);
    for (Window &w : windows_) {
        if (w.closed || !w.restored || w.begin >= lookBegan) continue;
        const bool whole = w.phone == kEveryPhone ? all : w.phone < static_cast<int>(healthy.size()) && healthy[w.phone];
        if (!whole) continue;
        w.closed = true;
        w.end = now;
    }
}

bool Ledger::fault_open_on(int phone) const {
    std::lock_guard lock(mutex_);
    return std::any_of(windows_.begin(), windows_.end(),
                       [&](const Window &w) { return !w.closed && (w.phone == phone || w.phone == kEveryPhone); });
}

bool Ledger::server_fault_open() const {
    std::lock_guard lock(mutex_);
    return std::any_of(windows_.begin(), windows_.end(),
                       [](const Window &w) { return !w.closed && w.phone == kEveryPhone; });
}

std::size_t Ledger::open_faults() const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(windows_.begin(), windows_.end(), [](const Window &w) { return !w.closed; }));
}

bool Ledger::held_during(const Window &w, int phone, Clock::time_point begin, Clock::time_point end) const {
    const bool samePhone = w.phone == kEveryPhone || phone == kEveryPhone || w.phone == phone;
    return samePhone && w.begin <= end && begin <= w.end;
}

void Ledger::prune(Clock::time_point now) {
    std::erase_if(windows_, [&](const Window &w) { return w.closed && now - w.end > kWindowKept; });
}

Totals Ledger::totals() const {
    std::lock_guard lock(mutex_);
    return totals_;
}

std::map<std::string, ResultCounts> Ledger::calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
}

std::map<std::string, ApartCounts> Ledger::apart() const {
    std::lock_guard lock(mutex_);
    return apart_;
}

std::vector<FaultTally> Ledger::faults() const {
    std::lock_guard lock(mutex_);
    return faults_;
}

std::vector<std::string> Ledger::findings() const {
    std::lock_guard lock(mutex_);
    return findings_;
}

}  // namespace wrenlink::soak
