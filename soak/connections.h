// The agent connections of the soak, kept per phone and handed to one thread at a time. The
// library keeps the record of every connection it opened for the life of the process, so the soak
// reuses a connection for as long as it works and opens a new one only after a failure; opened()
// tells how many records that made.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "soak/farm.h"
#include "soak/ledger.h"
#include "soak/watchdog.h"

namespace wrenlink::soak {

class Connections {
public:
    Connections(const Farm &farm, Ledger &ledger, Watchdog &dog);
    ~Connections();
    Connections(const Connections &) = delete;
    Connections &operator=(const Connections &) = delete;

    // A connection to phone i's agent for the calling thread alone: an idle one, or a new one
    // (NetConnectionOpen, recorded as a call). Null when the open failed.
    NetConnection *take(std::size_t phone);
    // Back from use: kept for the next thread when every call on it went well, else closed.
    void give_back(std::size_t phone, NetConnection *conn, bool good);
    // Closes every idle connection (for the census at either end of the run).
    void close_idle();
    long opened() const;

private:
    const Farm &farm_;
    Ledger &ledger_;
    Watchdog &dog_;
    mutable std::mutex mutex_;
    std::vector<std::vector<NetConnection *>> idle_;
    long opened_ = 0;
};

}  // namespace wrenlink::soak
