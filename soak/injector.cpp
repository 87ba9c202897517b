#include "soak/injector.h"

#include <signal.h>

#include <algorithm>

#include "soak/adb_tool.h"
#include "support/adb_server.h"

namespace wrenlink::soak {

namespace {

// One fault every 1.4 s on average: over 1,000 in half an hour, and dozens in the one-minute run.
constexpr double kMeanGapMs = 1400;
// An agent kill waits this long for a scan or a transfer to hit, then takes any phone.
constexpr auto kAgentKillPatience = std::chrono::seconds(1);
// The weights of the kinds, in the order of FaultKind.
constexpr double kWeights[kFaultKinds] = {25, 10, 25, 25, 15};

}  // namespace

Injector::Injector(Farm &farm, Ledger &ledger, Keeper &keeper, Watchdog &dog, uint64_t seed)
    : farm_(farm), ledger_(ledger), keeper_(keeper), dog_(dog), rng_(seed), next_(Clock::now()),
      stallQuietUntil_(farm.size()) {}

std::chrono::milliseconds Injector::between(int lowMs, int highMs) {
    return std::chrono::milliseconds(std::uniform_int_distribution<int>(lowMs, highMs)(rng_));
}

FaultKind Injector::draw_kind() {
    std::discrete_distribution<int> kinds(std::begin(kWeights), std::end(kWeights));
    return static_cast<FaultKind>(kinds(rng_));
}

bool Injector::pending_on(std::size_t phone) const {
    return std::any_of(pending_.begin(), pending_.end(), [&](const Pending &p) { return p.phone == phone; });
}

// A phone with no fault of its own or the server's, one of `preferred` where one is free; -1
// when none is.
int Injector::free_phone(const std::vector<int> &preferred, FaultKind kind) {
    std::vector<int> free, both;
    const auto now = Clock::now();
    for (std::size_t i = 0; i < farm_.size(); ++i) {
        if (pending_on(i) || ledger_.fault_open_on(static_cast<int>(i))) continue;
        if (kind == FaultKind::Stall && now < stallQuietUntil_[i]) continue;
        free.push_back(static_cast<int>(i));
        if (std::find(preferred.begin(), preferred.end(), static_cast<int>(i)) != preferred.end())
            both.push_back(static_cast<int>(i));
    }
    const std::vector<int> &from = both.empty() ? free : both;
    if (from.empty()) return -1;
    return from[std::uniform_int_distribution<std::size_t>(0, from.size() - 1)(rng_)];
}

void Injector::tend(bool inject_now) {
    const auto now = Clock::now();
    for (auto it = pending_.begin(); it != pending_.end();) {
        if (it->at <= now && restore(*it)) {
            it = pending_.erase(it);
        } else {
            ++it;
        }
    }
    restart_crashed();
    if (!inject_now || now < next_) return;
    if (inject(draw_kind())) {
        std::exponential_distribution<double> gap(1.0 / kMeanGapMs);
        next_ = now + std::chrono::milliseconds(static_cast<long>(gap(rng_)));
    }
}

void Injector::restore_all() {
    for (Pending &p : pending_) p.at = Clock::now();
    for (int attempt = 0; attempt < 5 && !pending_.empty(); ++attempt) tend(false);
}

void Injector::restart_crashed() {
    for (const std::string &what : farm_.ended_by_themselves()) ledger_.crash(what);
    for (std::size_t i = 0; i < farm_.size(); ++i) {
        if (pending_on(i)) continue;
        if (!farm_.phone_up(i)) farm_.start_phone(i);
        if (!farm_.agent_up(i)) farm_.start_agent(i);
    }
}

bool Injector::restore(const Pending &p) {
    switch (p.kind) {
    case FaultKind::Unplug:
        if (!farm_.start_phone(p.phone)) return false;  // tried again at the next turn
        break;
    case FaultKind::Stall:
        farm_.resume_phone(p.phone);
        // One stall at most in a scan's life: the scan that a stall holds waits for its end.
        stallQuietUntil_[p.phone] = Clock::now() + dog_.limits().scanHang;
        break;
    case FaultKind::AgentKill:
        if (!farm_.start_agent(p.phone)) return false;
        break;
    case FaultKind::ServerKill:
    case FaultKind::ForwardRemoved: break;
    }
    ledger_.restored(p.fault);
    return true;
}

bool Injector::inject(FaultKind kind) {
    if (kind == FaultKind::ServerKill) {
        const pid_t server = support::adb_server_pid();
        if (server <= 0 || ledger_.server_fault_open()) return false;
        keeper_.server_killed(server);  // before the kill, so that no look takes it for a crash
        const int fault = ledger_.begin_fault(kind, kEveryPhone);
        ::kill(server, SIGKILL);
        ledger_.restored(fault);  // nothing to undo: the next run of the tool starts a server
        return true;
    }
    std::vector<int> preferred;
    // A stall is most telling while an agent call waits on the phone: the watchdog must then
    // release it.
    if (kind == FaultKind::Stall)
        preferred = dog_.phones_running({"NDDStartScan", "NFCFileRefRead", "NFCFileRefWrite", "NFCFileRefOpen",
                                         "NFCFileRefSeek", "NFCFileRefTell", "NMCListImages", "NMCListMusics",
                                         "NMCListVideo", "TestPing"});
    if (kind == FaultKind::AgentKill) {
        preferred = dog_.phones_running({"NDDStartScan", "NFCFileRefRead", "NFCFileRefWrite"});
        const auto now = Clock::now();
        if (agentKillWanted_ == Clock::time_point{}) agentKillWanted_ = now;
        if (preferred.empty() && now - agentKillWanted_ < kAgentKillPatience) return false;
        agentKillWanted_ = {};
    }
    const int phone = free_phone(preferred, kind);
    if (phone < 0) return false;
    const auto i = static_cast<std::size_t>(phone);
    const Phone &p = farm_.phone(i);
    switch (kind) {
    case FaultKind::Unplug: {
        const int fault = ledger_.begin_fault(kind, phone);
        farm_.kill_phone(i);
        pending_.push_back({Clock::now() + between(500, 3000), kind, i, fault});
        return true;
    }
    case FaultKind::Stall: {
        if (!farm_.phone_up(i)) return false;
        const int fault = ledger_.begin_fault(kind, phone);
        farm_.stall_phone(i);
        pending_.push_back({Clock::now() + between(1000, static_cast<int>(kLongestStall.count())), kind, i, fault});
        return true;
    }
    case FaultKind::AgentKill: {
        const int fault = ledger_.begin_fault(kind, phone);
        farm_.kill_agent(i);
        pending_.push_back({Clock::now() + between(200, 1000), kind, i, fault});
        return true;
    }
    case FaultKind::ForwardRemoved: {
        // Counted once the server has removed it (it says nothing then).
        const ToolRun removal = run_adb({"-s", p.serial, "forward", "--remove", "tcp:" + std::to_string(p.controlPort)});
        if (!removal.finished || !removal.text.empty()) return false;
        ledger_.restored(ledger_.begin_fault(kind, phone));  // the keeper makes it again
        return true;
    }
    case FaultKind::ServerKill: break;
    }
    return false;
}

}  // namespace wrenlink::soak
