#include "agent_transfers.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <atomic>

#include "agent_work.h"

namespace {

constexpr int32_t kTransferChunk = 256 * 1024;
constexpr qint64 kProgressGapMs = 50;

// Bytes moved of a transfer, handed to the window at most every 50 ms.
class Progress {
public:
    Progress(ToWindow<Transfers> &toWindow, quint64 total) : toWindow_(toWindow), total_(total) {}
    void add(quint64 bytes) {
        done_ += bytes;
        if (!sinceReport_.isValid() || sinceReport_.elapsed() >= kProgressGapMs) report();
    }
    void report() {
        sinceReport_.start();
        toWindow_([done = done_, total = total_](Transfers &transfers) { emit transfers.progressed(done, total); });
    }

private:
    ToWindow<Transfers> &toWindow_;
    quint64 done_ = 0, total_;
    QElapsedTimer sinceReport_;
};

}  // namespace

// The transfer thread's side.
class Transfers::Work : public AgentWork<Transfers> {
public:
    using AgentWork::AgentWork;

    bool connected();
    void copyToComputer(const std::vector<MediaItem> &items, const QString &folder);
    void sendToPhone(const QString &localPath, const QString &phoneFolder);
    void endCancelled();

    std::atomic<bool> cancelled{false};

private:
    QString copyOne(NetConnection *conn, const MediaItem &item, const QString &localPath, Progress &progress);
    QString sendFile(NetConnection *conn, const QString &localPath, const QString &phonePath, Progress &progress);
};

Transfers::Transfers(const QString &address, quint16 port, QObject *parent)
    : QObject(parent), work_(std::make_shared<Work>(this, address, port, 1)) {}

Transfers::~Transfers() {
    work_->cancelled = true;  // a copy under way removes its partial file
    letGo(work_);
}

// The work outlives its thread, which it waits for before it goes.
void Transfers::run(std::function<void(Work &)> transfer) {
    work_->pool.start([work = work_.get(), transfer = std::move(transfer)] {
        work->cancelled = false;  // a cancel that came between transfers is spent
        if (work->connected()) transfer(*work);
    });
}

// The connection is opened at the first transfer, and again after a cancel closed it; never
// once the transfers have been let go, which shuts it.
bool Transfers::Work::connected() {
    if (link.get() != nullptr) return true;
    const QString error = link.open();
    if (!error.isEmpty()) report(error);
    return error.isEmpty();
}

void Transfers::cancel() {
    work_->cancelled = true;
    work_->link.close();
}

void Transfers::Work::endCancelled() {
    toWindow([](Transfers &transfers) { emit transfers.cancelled(); });
    cancelled = false;
    connected();  // at once, so that a phone that went away shows now
}

void Transfers::copyToComputer(const std::vector<MediaItem> &items, const QString &folder) {
    run([items, folder](Work &work) { work.copyToComputer(items, folder); });
}

void Transfers::Work::copyToComputer(const std::vector<MediaItem> &items, const QString &folder) {
    NetConnection *conn = link.get();
    quint64 total = 0;
    for (const MediaItem &item : items) total += item.size;
    Progress progress(toWindow, total);
    QStringList saved;
    for (const MediaItem &item : items) {
        const QString local = QDir(folder).filePath(QFileInfo(item.path).fileName());
        const QString error = copyOne(conn, item, local, progress);
        if (cancelled || !error.isEmpty()) QFile::remove(local);
        if (cancelled) return endCancelled();
        if (!error.isEmpty()) return report(error);
        saved << local;
    }
    progress.report();
    toWindow([saved](Transfers &transfers) { emit transfers.copied(saved); });
}

QString Transfers::Work::copyOne(NetConnection *conn, const MediaItem &item, const QString &localPath, Progress &progress) {
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
    run([localPath, phoneFolder](Work &work) { work.sendToPhone(localPath, phoneFolder); });
}

void Transfers::Work::sendToPhone(const QString &localPath, const QString &phoneFolder) {
    NetConnection *conn = link.get();
    const QString phonePath = QDir::cleanPath(phoneFolder + "/" + QFileInfo(localPath).fileName());
    Progress progress(toWindow, static_cast<quint64>(QFileInfo(localPath).size()));
    const QString error = sendFile(conn, localPath, phonePath, progress);
    if (cancelled) {
        endCancelled();
        NFCFileRefDelete(link.get(), phonePath.toUtf8().constData());  // what came of it
        return;
    }
    if (!error.isEmpty()) return report(error);
    progress.report();
    toWindow([phonePath](Transfers &transfers) { emit transfers.sent(phonePath); });
}

QString Transfers::Work::sendFile(NetConnection *conn, const QString &localPath, const QString &phonePath, Progress &progress) {
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
    run([phonePath](Work &work) {
        if (const AgentStatus status = NFCFileRefDelete(work.link.get(), phonePath.toUtf8().constData()))
            return work.report(callFailed("NFCFileRefDelete", status, phonePath));
        work.toWindow([phonePath](Transfers &transfers) { emit transfers.deleted(phonePath); });
    });
}
