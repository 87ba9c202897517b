// Net connection and ping.
#include "Wrenlink/Wrenlink.h"
#include "agent/link/connection.h"
#include "agent/link/ping.h"
#include "agent/link/registry.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

NetConnection *NetConnectionOpen(const char *address, uint32_t port) {
    return guarded<NetConnection *>(nullptr, [&] { return agent::open_kept_connection(address, port); });
}

int32_t NetConnectionSend(NetConnection *conn, const void *data, int32_t length, int32_t flags) {
    return agent::send_all(conn, data, length, flags);
}

int32_t NetConnectionRecv(NetConnection *conn, void *buffer, int32_t length, int32_t flags) {
    return agent::receive_exact(conn, buffer, length, flags);
}

int32_t NetConnectionSetTimeout(NetConnection * /*conn*/, int32_t /*milliseconds*/) { return 0; }

// A watchdog thread's way out of a call on a silent agent: the close shuts down what transfers
// wait on before the descriptor can be closed.
void NetConnectionClose(NetConnection *conn) {
    if (conn != nullptr) agent::close_connection(conn);
}

void NetConnectionLock(NetConnection *conn) {
    if (conn != nullptr) conn->mutex.lock();
}

void NetConnectionUnlock(NetConnection *conn) {
    if (conn != nullptr) conn->mutex.unlock();
}

int32_t TestPing(NetConnection *conn) {
    // Only the request's allocation can throw.
    return guarded<int32_t>(-2, [&] { return agent::ping(conn); });
}

}  // extern "C"
