#include "agent/link/registry.h"

#include <memory>
#include <mutex>
#include <vector>

namespace wrenlink::agent {

namespace {

class Registry {
public:
    void keep(std::unique_ptr<NetConnection> conn) {
        std::lock_guard lock(mutex_);
        records_.push_back(std::move(conn));
    }

private:
    std::mutex mutex_;
    std::vector<std::unique_ptr<NetConnection>> records_;
};

Registry &registry() {
    static auto *r = new Registry;  // never destroyed: callers may still hold handles at exit
    return *r;
}

}  // namespace

NetConnection *open_kept_connection(const char *address, uint32_t port) {
    auto conn = open_connection(address, port);
    if (!conn) return nullptr;
    NetConnection *handle = conn.get();
    registry().keep(std::move(conn));
    return handle;
}

}  // namespace wrenlink::agent
