#include "soak/keeper.h"

#include <map>
#include <sstream>

#include "soak/adb_tool.h"
#include "support/adb_server.h"

namespace wrenlink::soak {

namespace {

constexpr auto kLookEvery = std::chrono::milliseconds(200);
// The library's next run starts a server again; when none comes for this long (no thread is in
// the adb half), the keeper starts it.
constexpr auto kServerAbsence = std::chrono::seconds(2);
// A phone plugged back stays offline in the server's list: after this long it is disconnected
// and connected again. Shorter would break a connection still being made.
constexpr auto kOfflineGrace = std::chrono::seconds(1);

// "SERIAL\tSTATE" lines of `adb devices`, by serial.
std::map<std::string, std::string> device_states(const std::string &text) {
    std::map<std::string, std::string> states;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto tab = line.find('\t');
        if (tab != std::string::npos) states[line.substr(0, tab)] = line.substr(tab + 1);
    }
    return states;
}

}  // namespace

Keeper::Keeper(Farm &farm, Ledger &ledger)
    : farm_(farm), ledger_(ledger), offlineSince_(farm.size()), thread_([this] { run(); }) {}

Keeper::~Keeper() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

bool Keeper::wait_all_whole(std::chrono::milliseconds limit) {
    const auto from = Clock::now();
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return lastWholeLook_ > from; });
}

void Keeper::hold(bool held) {
    {
        std::lock_guard lock(mutex_);
        held_ = held;
    }
    const std::lock_guard waitForLook(lookMutex_);
}

void Keeper::server_killed(pid_t pid) {
    std::lock_guard lock(mutex_);
    killed_.insert(pid);
}

void Keeper::run() {
    std::unique_lock lock(mutex_);
    while (!changed_.wait_for(lock, kLookEvery, [this] { return stopping_; })) {
        if (held_) continue;
        lock.unlock();
        {
            const std::lock_guard looking(lookMutex_);
            look();
        }
        lock.lock();
    }
}

void Keeper::look() {
    const auto began = Clock::now();
    const pid_t server = support::adb_server_pid();
    {
        std::lock_guard lock(mutex_);
        if (server_ > 0 && server != server_ && killed_.count(server_) == 0)
            ledger_.crash("the adb server (pid " + std::to_string(server_) + ") ended without being killed");
        server_ = server;
    }
    std::vector<bool> whole(farm_.size(), false);
    if (server < 0) {
        if (serverAbsentSince_ == Clock::time_point{}) serverAbsentSince_ = began;
        if (began - serverAbsentSince_ > kServerAbsence) run_adb({"start-server"});
        ledger_.close_restored_faults(whole, began);
        return;
    }
    serverAbsentSince_ = {};
    const auto states = device_states(run_adb({"devices"}).text);
    const std::string forwards = run_adb({"forward", "--list"}).text;
    for (std::size_t i = 0; i < farm_.size(); ++i) {
        const auto it = states.find(farm_.phone(i).serial);
        whole[i] = mend(i, it == states.end() ? std::string() : it->second, forwards);
    }
    ledger_.close_restored_faults(whole, began);
    bool all = true;
    for (const bool w : whole) all = all && w;
    if (!all) return;
    {
        std::lock_guard lock(mutex_);
        lastWholeLook_ = began;
    }
    changed_.notify_all();
}

// Mends phone i one step; true when it was whole already.
bool Keeper::mend(std::size_t i, const std::string &state, const std::string &forwards) {
    const Phone &p = farm_.phone(i);
    // A phone that is away or stalled is left alone: a connect would wait for it.
    if (!farm_.phone_up(i) || farm_.phone_stalled(i)) return false;
    if (state.empty()) {
        run_adb({"connect", p.serial});
        return false;
    }
    if (state == "offline") {
        const auto now = Clock::now();
        if (offlineSince_[i] == Clock::time_point{}) offlineSince_[i] = now;
        if (now - offlineSince_[i] > kOfflineGrace) {
            run_adb({"disconnect", p.serial});
            run_adb({"connect", p.serial});
            offlineSince_[i] = {};
        }
        return false;
    }
    offlineSince_[i] = {};
    if (state != "device") return false;
    const std::string control = "tcp:" + std::to_string(p.controlPort);
    if (forwards.find(p.serial + " " + control + " localabstract:" + p.controlName) == std::string::npos) {
        run_adb({"-s", p.serial, "forward", control, "localabstract:" + p.controlName});
        return false;
    }
    return farm_.agent_up(i);
}

}  // namespace wrenlink::soak
