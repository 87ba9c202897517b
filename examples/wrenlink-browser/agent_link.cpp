#include "agent_link.h"

AgentLink::AgentLink(const QString &address, quint16 port) : address_(address.toUtf8()), port_(port) {}

AgentLink::~AgentLink() { close(); }

QString AgentLink::open() {
    const QString where = QString::fromUtf8(address_) + ":" + QString::number(port_);
    const QString shut = "NetConnectionOpen " + where + ": the connection was closed";
    {
        std::lock_guard lock(mutex_);
        if (shut_) return shut;
    }
    NetConnection *conn = NetConnectionOpen(address_.constData(), port_);
    if (conn == nullptr) return "NetConnectionOpen " + where + ": no connection";
    {
        std::lock_guard lock(mutex_);
        if (shut_) {
            NetConnectionClose(conn);
            return shut;
        }
        NetConnectionClose(conn_);  // null does nothing
        conn_ = conn;
    }
    int32_t ping = 0;
    {
        ExchangeLock lock(conn);
        ping = TestPing(conn);
    }
    if (ping == 0) return {};
    std::lock_guard lock(mutex_);
    if (conn_ == conn) {
        NetConnectionClose(conn_);
        conn_ = nullptr;
    }
    return shut_ ? shut : "TestPing " + where + ": " + QString::number(ping);
}

NetConnection *AgentLink::get() const {
    std::lock_guard lock(mutex_);
    return conn_;
}

void AgentLink::close() {
    std::lock_guard lock(mutex_);
    NetConnectionClose(conn_);
    conn_ = nullptr;
}

void AgentLink::shut() {
    std::lock_guard lock(mutex_);
    shut_ = true;
    NetConnectionClose(conn_);
    conn_ = nullptr;
}

RemoteFile::~RemoteFile() {
    // On a connection that broke this releases nothing and returns the stored error: the
    // handle's few bytes are the price of a dead connection.
    if (ref_ != nullptr) NFCFileRefClose(conn_, ref_);
}

AgentStatus RemoteFile::open(NetConnection *conn, const QString &path, const char *mode) {
    conn_ = conn;
    return NFCFileRefOpen(conn, path.toUtf8().constData(), mode, &ref_);
}
