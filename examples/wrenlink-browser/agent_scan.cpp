#include "agent_scan.h"

#include <QTimer>
#include <cstring>

#include "window_thread.h"

namespace {

constexpr qint64 kHandOverGapMs = 50;

ScanRunner *runnerOf(uint64_t userValue) { return reinterpret_cast<ScanRunner *>(static_cast<uintptr_t>(userValue)); }

QString outcome(quint32 code, qint64 count) {
    switch (code) {
    case ScanRunner::kComplete: return QString("Scan complete: %1 files found").arg(count);
    case ScanRunner::kStopped: return QString("Scan stopped after %1 files").arg(count);
    case ScanRunner::kStreamBroken:
        return QString("NDDStartScan: the event stream broke off after %1 files (code 22): the phone went away?").arg(count);
    default: return QString("NDDStartScan: the scan ended with code %1 (%2)").arg(code).arg(std::strerror(static_cast<int>(code)));
    }
}

}  // namespace

ScanRunner::ScanRunner(const QString &address, quint16 port, QObject *parent) : QObject(parent), link_(address, port) {
    control_.setMaxThreadCount(1);
}

ScanRunner::~ScanRunner() {
    control_.waitForDone();
    if (!loop_.joinable()) return;
    // The loop ends when the agent closes the event connection, so the agent is asked to stop.
    // Until it has accepted the scan, the start request's reply is still due on the connection.
    // An agent that vanished fails both at once; one that hangs with its connections open holds
    // this thread, since nothing on this side can end the event loop.
    std::unique_lock lock(mutex_);
    stateChanged_.wait(lock, [this] { return state_ != State::Starting; });
    const bool looping = state_ == State::Looping;
    lock.unlock();
    if (looping) NDDStopScan(link_.get());
    loop_.join();
}

bool ScanRunner::running() const {
    std::lock_guard lock(mutex_);
    return state_ == State::Starting || state_ == State::Looping;
}

void ScanRunner::start() {
    if (running()) return;
    if (loop_.joinable()) loop_.join();  // the last scan's thread, at its end already
    {
        std::lock_guard lock(mutex_);
        state_ = State::Starting;
        mailbox_.clear();
        done_ = count_ = 0;
        total_ = -1;
        code_ = kStreamBroken;
        handOverOwed_ = false;
    }
    loop_ = std::thread([this] { runLoop(); });
}

void ScanRunner::runLoop() {
    QString error = link_.open();
    AgentStatus status = 0;
    if (error.isEmpty()) {
        // No lock: no file call ever goes on this connection.
        status = NDDStartScan(link_.get(), nullptr, onFoundItem, onCode, onProgress,
                              static_cast<uint64_t>(reinterpret_cast<uintptr_t>(this)));
        if (status != 0) error = callFailed("NDDStartScan", status);
    }
    {
        std::lock_guard lock(mutex_);
        state_ = State::Ended;
    }
    stateChanged_.notify_all();
    control_.waitForDone();  // a control request under way gets its answer before the close
    link_.close();
    onWindowThread(this, [this, status, error] { finish(status, error); });
}

void ScanRunner::onFoundItem(const char *item, uint64_t self) {
    MediaItem found = foundItemFromText(item);
    ScanRunner *runner = runnerOf(self);
    std::lock_guard lock(runner->mutex_);
    runner->mailbox_.push_back(std::move(found));
    ++runner->count_;
    runner->askForHandOver();
}

void ScanRunner::onProgress(int64_t done, int64_t total, uint64_t self) {
    ScanRunner *runner = runnerOf(self);
    std::lock_guard lock(runner->mutex_);
    runner->done_ = done;
    runner->total_ = total;
    runner->askForHandOver();
}

void ScanRunner::onCode(uint32_t code, uint64_t self) {
    ScanRunner *runner = runnerOf(self);
    std::lock_guard lock(runner->mutex_);
    runner->code_ = code;
}

void ScanRunner::askForHandOver() {
    if (state_ == State::Starting) {  // the first event: the agent has accepted the scan
        state_ = State::Looping;
        stateChanged_.notify_all();
        onWindowThread(this, [this] { emit started(); });
    }
    if (handOverOwed_) return;
    handOverOwed_ = true;
    onWindowThread(this, [this] { handOver(); });
}

void ScanRunner::handOver() {
    const qint64 wait = kHandOverGapMs - sinceHandOver_.elapsed();
    if (sinceHandOver_.isValid() && wait > 0) {
        QTimer::singleShot(static_cast<int>(wait), this, [this] { handOver(); });
        return;
    }
    std::vector<MediaItem> items;
    qint64 done = 0, total = 0;
    {
        std::lock_guard lock(mutex_);
        if (!handOverOwed_) return;  // finish() took the mailbox out already
        handOverOwed_ = false;
        items.swap(mailbox_);
        done = done_;
        total = total_;
    }
    sinceHandOver_.start();
    emit found(items, done, total);
}

void ScanRunner::finish(AgentStatus status, const QString &error) {
    // Everything the callbacks left, then the end: this call was queued after all of them.
    std::vector<MediaItem> items;
    qint64 done = 0, total = 0, count = 0;
    quint32 code = 0;
    {
        std::lock_guard lock(mutex_);
        handOverOwed_ = false;
        items.swap(mailbox_);
        done = done_;
        total = total_;
        count = count_;
        code = code_;
    }
    if (!items.empty() || total >= 0) emit found(items, done, total);
    if (!error.isEmpty()) {
        emit finished(status == 0 ? kStreamBroken : status, error);
    } else {
        emit finished(code, outcome(code, count));
    }
}

void ScanRunner::control(const char *call, AgentStatus (*request)(NetConnection *), void (ScanRunner::*answered)()) {
    {
        std::lock_guard lock(mutex_);
        if (state_ != State::Looping) return;
    }
    control_.start([this, call, request, answered] {
        const AgentStatus status = request(link_.get());
        onWindowThread(this, [this, call, status, answered] {
            if (status == 0) {
                if (answered != nullptr) emit(this->*answered)();
            } else if (running()) {  // after the scan's end a refusal says nothing
                emit failed(callFailed(call, status));
            }
        });
    });
}

void ScanRunner::pause() { control("NDDPauseScan", NDDPauseScan, &ScanRunner::paused); }
void ScanRunner::resume() { control("NDDResumeScan", NDDResumeScan, &ScanRunner::resumed); }
void ScanRunner::stop() { control("NDDStopScan", NDDStopScan, nullptr); }  // finished tells the rest
