#include "agent_transfers.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include "window_thread.h"

namespace {

constexpr int32_t kTransferChunk = 256 * 1024;
constexpr qint64 kProgressGapMs = 50;

}  // namespace

// Bytes moved of a transfer, handed to the window at most every 50 ms.
class Transfers::Progress {
public:
    Progress(Transfers *owner, quint64 total) : owner_(owner), total_(total) {}
    void add(quint64 bytes) {
        done_ += bytes;
        if (!sinceReport_.isValid() || sinceReport_.elapsed() >= kProgressGapMs) report();
    }
    void report() {
        sinceReport_.start();
        onWindowThread(owner_, [owner = owner_, done = done_, total = total_] { emit owner->progressed(done, total); });
    }

private:
    Transfers *owner_;
    quint64 done_ = 0, total_;
    QElapsedTimer sinceReport_;
};

Transfers::Transfers(const QString &address, quint16 port, QObject *parent) : QObject(parent), link_(address, port) {
    worker_.setMaxThreadCount(1);
}

Transfers::~Transfers() {
    worker_.clear();
    closing_ = true;
    cancelled_ = true;
    link_.close();
    worker_.waitForDone();
}

void Transfers::run(std::function<void()> transfer) {
    worker_.start([this, transfer] {
        cancelled_ = false;  // a cancel that came between transfers is spent
        if (connected()) transfer();
    });
}

// The connection is opened at the first transfer, and again after a cancel closed it; never
// once the destructor has closed it.
bool Transfers::connected() {
    if (closing_) return false;
    if (link_.get() != nullptr) return true;
    const QString error = link_.open();
    if (!error.isEmpty()) report(error);
    return error.isEmpty();
}

void Transfers::cancel() {
    cancelled_ = true;
    link_.close();
}

void Transfers::endCancelled() {
    onWindowThread(this, [this] { emit cancelled(); });
    cancelled_ = false;
    connected();  // at once, so that a phone that went away shows now
}

void Transfers::report(const QString &what) {
    onWindowThread(this, [this, what] { emit failed(what); });
}

void Transfers::copyToComputer(const std::vector<MediaItem> &items, const QString &folder) {
    run([this, items, folder] {
        NetConnection *conn = link_.get();
        quint64 total = 0;
        for (const MediaItem &item : items) total += item.size;
        Progress progress(this, total);
        QStringList saved;
        for (const MediaItem &item : items) {
            const QString local = QDir(folder).filePath(QFileInfo(item.path).fileName());
            const QString error = copyOne(conn, item, local, progress);
            if (cancelled_ || !error.isEmpty()) QFile::remove(local);
            if (cancelled_) return endCancelled();
            if (!error.isEmpty()) return report(error);
            saved << local;
        }
        progress.report();
        onWindowThread(this, [this, saved] { emit copied(saved); });
    });
}

QString Transfers::copyOne(NetConnection *conn, const MediaItem &item, const QString &localPath, Progress &progress) {
    QFile out(localPath);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) return localPath + ": " + out.errorString();
    RemoteFile in;
    if (const AgentStatus status = in.open(conn, item.path, "rb")) return callFailed("NFCFileRefOpen", status, item.path);
    std::vector<char> chunk(kTransferChunk);
    for (;;) {
        int32_t length = kTransferChunk;
        if (const AgentStatus status = in.read(chunk.data(), length)) return callFailed("NFCFileRefRead", status, item.path);
        if (length == 0) return {};
        if (out.write(chunk.data(), length) != length) return localPath + ": " + out.errorString();
        progress.add(static_cast<quint64>(length));
    }
}

void Transfers::sendToPhone(const QString &localPath, const QString &phoneFolder) {
    run([this, localPath, phoneFolder] {
        NetConnection *conn = link_.get();
        const QString phonePath = QDir::cleanPath(phoneFolder + "/" + QFileInfo(localPath).fileName());
        Progress progress(this, static_cast<quint64>(QFileInfo(localPath).size()));
        const QString error = sendFile(conn, localPath, phonePath, progress);
        if (cancelled_) {
            endCancelled();
            NFCFileRefDelete(link_.get(), phonePath.toUtf8().constData());  // what came of it
            return;
        }
        if (!error.isEmpty()) return report(error);
        progress.report();
        onWindowThread(this, [this, phonePath] { emit sent(phonePath); });
    });
}

QString Transfers::sendFile(NetConnection *conn, const QString &localPath, const QString &phonePath, Progress &progress) {
    QFile in(localPath);
    if (!in.open(QIODevice::ReadOnly)) return localPath + ": " + in.errorString();
    RemoteFile out;
    if (const AgentStatus status = out.open(conn, phonePath, "wb")) return callFailed("NFCFileRefOpen", status, phonePath);
    std::vector<char> chunk(kTransferChunk);
    for (;;) {
        const qint64 length = in.read(chunk.data(), kTransferChunk);
        if (length < 0) return localPath + ": " + in.errorString();
        if (length == 0) return {};
        if (const AgentStatus status = out.write(chunk.data(), static_cast<int32_t>(length)))
            return callFailed("NFCFileRefWrite", status, phonePath);
        progress.add(static_cast<quint64>(length));
    }
}

void Transfers::deleteOnPhone(const QString &phonePath) {
    run([this, phonePath] {
        if (const AgentStatus status = NFCFileRefDelete(link_.get(), phonePath.toUtf8().constData()))
            return report(callFailed("NFCFileRefDelete", status, phonePath));
        onWindowThread(this, [this, phonePath] { emit deleted(phonePath); });
    });
}
