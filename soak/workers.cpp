#include "soak/workers.h"

#include <sys/stat.h>

namespace wrenlink::soak {

namespace {

constexpr auto kPauseAfterFailure = std::chrono::milliseconds(50);

}  // namespace

Workers::Workers(Farm &farm, Ledger &ledger, Watchdog &dog, Connections &conns, const std::string &scratch,
                 int threads, uint64_t seed) {
    for (int t = 0; t <= threads; ++t) {
        const std::string own = scratch + "/thread-" + std::to_string(t);
        ::mkdir(own.c_str(), 0700);
        contexts_.push_back(std::unique_ptr<Context>(new Context{farm, ledger, dog, conns, scanLock_, t, own,
                                                                 std::mt19937_64(seed + 1 + static_cast<uint64_t>(t)),
                                                                 std::vector<FileModel>(farm.size())}));
    }
}

Workers::~Workers() {
    for (std::thread &t : threads_)
        if (t.joinable()) t.detach();  // only a thread left inside a call is still joinable here
}

void Workers::start() {
    stopping_ = false;
    running_ = contexts_.size() - 1;
    for (std::size_t t = 0; t + 1 < contexts_.size(); ++t) threads_.emplace_back([this, t] { work(*contexts_[t]); });
}

bool Workers::stop(std::chrono::milliseconds limit) {
    stopping_ = true;
    std::unique_lock lock(mutex_);
    if (!finished_.wait_for(lock, limit, [this] { return running_ == 0; })) return false;
    lock.unlock();
    for (std::thread &t : threads_) t.join();
    threads_.clear();
    return true;
}

void Workers::work(Context &c) {
    const auto &kinds = task_kinds();
    std::vector<int> weights;
    for (const TaskKind &k : kinds) weights.push_back(k.weight);
    std::discrete_distribution<std::size_t> pick_kind(weights.begin(), weights.end());
    while (!stopping_) {
        const auto phone = c.pick<std::size_t>(0, c.farm.size() - 1);
        // After a failure a short pause, as an application would make before it tries again,
        // rather than a loop of refused connections while a forward is away.
        if (!kinds[pick_kind(c.rng)].run(c, phone)) std::this_thread::sleep_for(kPauseAfterFailure);
    }
    std::lock_guard lock(mutex_);
    --running_;
    finished_.notify_all();
}

std::vector<std::string> Workers::clean_pass() {
    Context &c = *contexts_.back();
    std::vector<std::string> failed;
    for (const TaskKind &kind : task_kinds()) {
        // The phone list reads every phone: once for all of them.
        const std::size_t phones = kind.run == phone_list_task ? 1 : c.farm.size();
        for (std::size_t phone = 0; phone < phones; ++phone)
            if (!kind.run(c, phone)) failed.push_back(std::string(kind.name) + " on phone " + std::to_string(phone));
    }
    return failed;
}

}  // namespace wrenlink::soak
