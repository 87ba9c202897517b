// One connection to the agent, as the threads of one object share it, and the helpers that keep
// to the header's thread rules on it.
#pragma once

#include <Wrenlink/Wrenlink.h>

#include <QByteArray>
#include <QString>
#include <mutex>

class AgentLink {
public:
    AgentLink(const QString &address, quint16 port);
    ~AgentLink();
    AgentLink(const AgentLink &) = delete;
    AgentLink &operator=(const AgentLink &) = delete;

    // Opens a connection and pings the agent, in place of a closed one. It blocks in the connect:
    // call it on a worker thread. The connection is the link's before the ping, so that a close
    // cuts a ping that an agent never answers. Empty when the agent answered, otherwise what
    // failed; once the link is shut, it opens nothing.
    QString open();
    // The open connection; null before open() and after close().
    NetConnection *get() const;
    // Closes the connection; from any thread. A call waiting on it returns an error at once: the
    // way to give up on a call, since none has a time limit. A handle stays safe to use after
    // its close (every call on it fails), so a thread that still holds it does no harm.
    void close();
    // Closes it for good: an open() under way or to come fails.
    void shut();

private:
    const QByteArray address_;
    const quint16 port_;
    mutable std::mutex mutex_;
    NetConnection *conn_ = nullptr;
    bool shut_ = false;
};

// Holds the connection's lock around an exchange that takes none itself (TestPing, NMC*), so
// that the file exchanges of other threads on the same connection wait for it.
class ExchangeLock {
public:
    explicit ExchangeLock(NetConnection *conn) : conn_(conn) { NetConnectionLock(conn_); }
    ~ExchangeLock() { NetConnectionUnlock(conn_); }
    ExchangeLock(const ExchangeLock &) = delete;
    ExchangeLock &operator=(const ExchangeLock &) = delete;

private:
    NetConnection *conn_;
};

// A file on the phone, closed when the object goes. The file calls lock each exchange, so
// several threads may each have a file open on one connection.
class RemoteFile {
public:
    RemoteFile() = default;
    ~RemoteFile();
    RemoteFile(const RemoteFile &) = delete;
    RemoteFile &operator=(const RemoteFile &) = delete;

    AgentStatus open(NetConnection *conn, const QString &path, const char *mode);
    // `length` in: the capacity of buffer; out: the count read, 0 at the end of the file.
    AgentStatus read(char *buffer, int32_t &length) { return NFCFileRefRead(conn_, ref_, buffer, &length); }
    AgentStatus write(const char *data, int32_t length) { return NFCFileRefWrite(conn_, ref_, data, length); }

private:
    NetConnection *conn_ = nullptr;
    NFCFileRef *ref_ = nullptr;
};
