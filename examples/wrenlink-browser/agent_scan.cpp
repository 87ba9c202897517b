#include "agent_scan.h"

#include <QThreadPool>
#include <QTimer>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "agent_link.h"
#include "leftovers.h"
#include "window_thread.h"

namespace {

constexpr qint64 kHandOverGapMs = 50;

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

// What the scan's threads share with the window's: the connection, the loop's thread, the
// control thread and the mailbox. The runner holds it, and the leftovers once the runner is gone,
// until the loop has ended: the callbacks never meet freed memory.
class ScanRunner::Loop {
public:
    Loop(ScanRunner *runner, const QString &address, quint16 port)
        : toWindow(runner), link_(address, port), where_(address + ":" + QString::number(port)) {
        control_.setMaxThreadCount(1);
    }

    void start();
    void control(const char *call, AgentStatus (*request)(NetConnection *), void (ScanRunner::*answered)());
    bool looping() const;

    // What came since the last take; `owed` says whether a hand-over was asked for.
    struct Batch {
        bool owed = false;
        std::vector<MediaItem> items;
        qint64 done = 0, total = 0, count = 0;
        quint32 code = 0;
    };
    Batch take();

    // On a thread of the leftovers: asks the agent to stop a running scan and waits for the end.
    void end();
    // What the window says when end() takes longer than a short grace.
    QString leftBehind() const;

    ToWindow<ScanRunner> toWindow;

private:
    // Opening: connecting and pinging; Starting: in NDDStartScan before the first event.
    enum class State { Idle, Opening, Starting, Looping, Ended };

    static Loop *of(uint64_t userValue) { return reinterpret_cast<Loop *>(static_cast<uintptr_t>(userValue)); }
    static void onFoundItem(const char *item, uint64_t self);
    static void onProgress(int64_t done, int64_t total, uint64_t self);
    static void onCode(uint32_t code, uint64_t self);
    void run();
    void setState(State state);
    void askForHandOver();  // with mutex_ held

    AgentLink link_;
    const QString where_;
    std::thread thread_;
    QThreadPool control_;  // one thread

    mutable std::mutex mutex_;  // what the callbacks share with the other threads
    std::condition_variable stateChanged_;
    State state_ = State::Idle;
    std::vector<MediaItem> mailbox_;
    qint64 done_ = 0, total_ = -1, count_ = 0;
    quint32 code_ = kStreamBroken;
    bool handOverOwed_ = false;
};

ScanRunner::ScanRunner(const QString &address, quint16 port, QObject *parent)
    : QObject(parent), loop_(std::make_shared<Loop>(this, address, port)) {}

ScanRunner::~ScanRunner() {
    loop_->toWindow.cut();
    Leftovers::instance().add(loop_->leftBehind(), [loop = loop_] { loop->end(); });
}

void ScanRunner::start() {
    if (running_) return;
    running_ = true;
    loop_->start();
}

// The last scan's thread has handed its end over (finish): it is past its last step.
void ScanRunner::Loop::start() {
    if (thread_.joinable()) thread_.join();
    {
        std::lock_guard lock(mutex_);
        state_ = State::Opening;
        mailbox_.clear();
        done_ = count_ = 0;
        total_ = -1;
        code_ = kStreamBroken;
        handOverOwed_ = false;
    }
    thread_ = std::thread([this] { run(); });
}

void ScanRunner::Loop::run() {
    QString error = link_.open();
    AgentStatus status = 0;
    if (error.isEmpty()) {
        setState(State::Starting);
        // No lock: no file call ever goes on this connection.
        status = NDDStartScan(link_.get(), nullptr, onFoundItem, onCode, onProgress,
                              static_cast<uint64_t>(reinterpret_cast<uintptr_t>(this)));
        if (status != 0) error = callFailed("NDDStartScan", status);
    }
    setState(State::Ended);
    control_.waitForDone();  // a control request under way gets its answer before the close
    link_.close();
    toWindow([status, error](ScanRunner &runner) { runner.finish(status, error); });
}

void ScanRunner::Loop::setState(State state) {
    {
        std::lock_guard lock(mutex_);
        state_ = state;
    }
    stateChanged_.notify_all();
}

void ScanRunner::Loop::end() {
    {
        std::unique_lock lock(mutex_);
        // The connection can be shut until the scan is asked for: that cuts a ping the agent
        // never answers. From then on the agent must end the loop, so it is asked to stop, once
        // it has accepted the scan: until then the start request's reply is still due.
        if (state_ == State::Opening) link_.shut();
        stateChanged_.wait(lock, [this] { return state_ != State::Opening && state_ != State::Starting; });
        if (state_ == State::Looping) control_.start([this] { NDDStopScan(link_.get()); });
    }
    if (thread_.joinable()) thread_.join();
}

QString ScanRunner::Loop::leftBehind() const {
    std::lock_guard lock(mutex_);
    if (state_ == State::Opening) return where_ + ": a connect under way is left behind until the system gives up on it";
    if (state_ == State::Starting)
        return where_ +
               ": the agent has not begun the scan it was asked for; it is left behind. While it holds the event port "
               "127.0.0.1:10244, another agent's scan may be refused";
    return where_ +
           ": the agent does not end its scan; it is left behind. Another agent can be connected and scanned "
           "meanwhile; this one refuses or ignores a new scan until it ends the old one";
}

void ScanRunner::Loop::onFoundItem(const char *item, uint64_t self) {
    MediaItem found = foundItemFromText(item);
    Loop *loop = of(self);
    std::lock_guard lock(loop->mutex_);
    loop->mailbox_.push_back(std::move(found));
    ++loop->count_;
    loop->askForHandOver();
}

void ScanRunner::Loop::onProgress(int64_t done, int64_t total, uint64_t self) {
    Loop *loop = of(self);
    std::lock_guard lock(loop->mutex_);
    loop->done_ = done;
    loop->total_ = total;
    loop->askForHandOver();
}

void ScanRunner::Loop::onCode(uint32_t code, uint64_t self) {
    Loop *loop = of(self);
    std::lock_guard lock(loop->mutex_);
    loop->code_ = code;
}

void ScanRunner::Loop::askForHandOver() {
    if (state_ == State::Starting) {  // the first event: the agent has accepted the scan
        state_ = State::Looping;
        stateChanged_.notify_all();
        toWindow([](ScanRunner &runner) { emit runner.started(); });
    }
    if (handOverOwed_) return;
    handOverOwed_ = true;
    toWindow([](ScanRunner &runner) { runner.handOver(); });
}

ScanRunner::Loop::Batch ScanRunner::Loop::take() {
    std::lock_guard lock(mutex_);
    Batch batch;
    batch.owed = handOverOwed_;
    handOverOwed_ = false;
    batch.items.swap(mailbox_);
    batch.done = done_;
    batch.total = total_;
    batch.count = count_;
    batch.code = code_;
    return batch;
}

bool ScanRunner::Loop::looping() const {
    std::lock_guard lock(mutex_);
    return state_ == State::Looping;
}

void ScanRunner::handOver() {
    const qint64 wait = kHandOverGapMs - sinceHandOver_.elapsed();
    if (sinceHandOver_.isValid() && wait > 0) {
        QTimer::singleShot(static_cast<int>(wait), this, [this] { handOver(); });
        return;
    }
    Loop::Batch batch = loop_->take();
    if (!batch.owed) return;  // finish() took the mailbox out already
    sinceHandOver_.start();
    emit found(batch.items, batch.done, batch.total);
}

void ScanRunner::finish(AgentStatus status, const QString &error) {
    // Everything the callbacks left, then the end: this call was queued after all of them.
    const Loop::Batch batch = loop_->take();
    running_ = false;
    if (!batch.items.empty() || batch.total >= 0) emit found(batch.items, batch.done, batch.total);
    if (!error.isEmpty()) {
        emit finished(status == 0 ? kStreamBroken : status, error);
    } else {
        emit finished(batch.code, outcome(batch.code, batch.count));
    }
}

void ScanRunner::Loop::control(const char *call, AgentStatus (*request)(NetConnection *), void (ScanRunner::*answered)()) {
    std::lock_guard lock(mutex_);  // so that the loop's end waits for a request it lets through
    if (state_ != State::Looping) return;
    control_.start([this, call, request, answered] {
        const AgentStatus status = request(link_.get());
        toWindow([call, status, answered](ScanRunner &runner) {
            if (status == 0) {
                if (answered != nullptr) emit(runner.*answered)();
            } else if (runner.loop_->looping()) {  // after the scan's end a refusal says nothing
                emit runner.failed(callFailed(call, status));
            }
        });
    });
}

void ScanRunner::pause() { loop_->control("NDDPauseScan", NDDPauseScan, &ScanRunner::paused); }
void ScanRunner::resume() { loop_->control("NDDResumeScan", NDDResumeScan, &ScanRunner::resumed); }
void ScanRunner::stop() { loop_->control("NDDStopScan", NDDStopScan, nullptr); }  // finished tells the rest
