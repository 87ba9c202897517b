#include "leftovers.h"

#include <thread>

Leftovers &Leftovers::instance() {
    static Leftovers *const leftovers = new Leftovers;
    return *leftovers;
}

void Leftovers::add(const QString &what, std::function<void()> end) {
    std::list<QString>::iterator entry;
    {
        std::lock_guard lock(mutex_);
        entry = underWay_.insert(underWay_.end(), what);
    }
    std::thread([this, entry, end = std::move(end)]() mutable {
        end();
        end = nullptr;  // the state goes before the end is told, so that nothing outlives settle()
        {
            std::lock_guard lock(mutex_);
            underWay_.erase(entry);
        }
        ended_.notify_all();
    }).detach();
}

QStringList Leftovers::underWay() const {
    std::lock_guard lock(mutex_);
    return {underWay_.begin(), underWay_.end()};
}

bool Leftovers::settle(std::chrono::milliseconds grace) {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, grace, [this] { return underWay_.empty(); });
}
