#include "soak/connections.h"

namespace wrenlink::soak {

Connections::Connections(const Farm &farm, Ledger &ledger, Watchdog &dog)
    : farm_(farm), ledger_(ledger), dog_(dog), idle_(farm.size()) {}

Connections::~Connections() { close_idle(); }

NetConnection *Connections::take(std::size_t phone) {
    {
        std::lock_guard lock(mutex_);
        if (!idle_.at(phone).empty()) {
            NetConnection *conn = idle_[phone].back();
            idle_[phone].pop_back();
            return conn;
        }
    }
    Watched call(dog_, ledger_, "NetConnectionOpen", static_cast<int>(phone), Half::Agent);
    NetConnection *conn = NetConnectionOpen("127.0.0.1", farm_.phone(phone).controlPort);
    call.end(conn != nullptr ? 1 : 0);
    if (conn != nullptr) {
        std::lock_guard lock(mutex_);
        ++opened_;
    }
    return conn;
}

void Connections::give_back(std::size_t phone, NetConnection *conn, bool good) {
    if (conn == nullptr) return;
    if (!good) {
        NetConnectionClose(conn);
        return;
    }
    std::lock_guard lock(mutex_);
    idle_.at(phone).push_back(conn);
}

void Connections::close_idle() {
    std::lock_guard lock(mutex_);
    for (auto &conns : idle_) {
        for (NetConnection *conn : conns) NetConnectionClose(conn);
        conns.clear();
    }
}

long Connections::opened() const {
    std::lock_guard lock(mutex_);
    return opened_;
}

}  // namespace wrenlink::soak
