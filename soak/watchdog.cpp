#include "soak/watchdog.h"

#include <algorithm>

namespace wrenlink::soak {

namespace {

constexpr auto kTick = std::chrono::milliseconds(20);

}  // namespace

Watchdog::Watchdog(Ledger &ledger, Limits limits) : ledger_(ledger), limits_(limits), thread_([this] { run(); }) {}

Watchdog::~Watchdog() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

int Watchdog::enter(std::string call, int phone, Half half, NetConnection *conn) {
    std::lock_guard lock(mutex_);
    calls_.emplace(next_, InFlight{std::move(call), phone, half, conn, Clock::now()});
    return next_++;
}

bool Watchdog::leave(int id) {
    std::lock_guard lock(mutex_);
    const auto it = calls_.find(id);
    if (it == calls_.end()) return false;
    const bool cut = it->second.cut;
    calls_.erase(it);
    return cut;
}

std::vector<int> Watchdog::phones_running(std::initializer_list<std::string_view> names) const {
    std::vector<int> phones;
    std::lock_guard lock(mutex_);
    for (const auto &[id, call] : calls_)
        if (std::find(names.begin(), names.end(), call.call) != names.end()) phones.push_back(call.phone);
    return phones;
}

std::vector<Watchdog::InFlight> Watchdog::in_flight() const {
    std::vector<InFlight> running;
    std::lock_guard lock(mutex_);
    for (const auto &[id, call] : calls_) running.push_back(call);
    return running;
}

std::chrono::milliseconds Watchdog::hang_limit(Half half) const {
    switch (half) {
    case Half::Agent: return limits_.agentHang;
    case Half::Scan: return limits_.scanHang;
    case Half::Adb: break;
    }
    return limits_.adbHang;
}

void Watchdog::run() {
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, kTick, [this] { return stopping_; })) {
        const auto now = Clock::now();
        for (auto &[id, call] : calls_) {
            const auto waited = now - call.begin;
            if (call.conn != nullptr && !call.cut && waited > limits_.agentCut) {
                NetConnectionClose(call.conn);  // the waiting call must return now
                call.cut = true;
            }
            const auto hangAfter = hang_limit(call.half);
            if (!call.hung && waited > hangAfter) {
                call.hung = true;
                ledger_.hang(call.call, call.phone, std::chrono::duration<double>(waited).count());
            }
        }
    }
}

Watched::Watched(Watchdog &dog, Ledger &ledger, std::string call, int phone, Half half, NetConnection *conn)
    : dog_(dog), ledger_(ledger), call_(std::move(call)), phone_(phone), id_(dog.enter(call_, phone, half, conn)) {}

Watched::~Watched() {
    if (!ended_) dog_.leave(id_);
}

Verdict Watched::end(int64_t value) {
    cut_ = dog_.leave(id_);
    ended_ = true;
    ledger_.record(call_, phone_, begin_, value, cut_);
    return judge(call_, value);
}

}  // namespace wrenlink::soak
