// A scan of the phone on a connection of its own. NDDStartScan runs its event loop, and so the
// callbacks, on the thread that calls it: here a thread of the scan's own. The callbacks only put
// what they get in a mailbox, and ask the window's thread for one hand-over when none is owed
// yet; the window takes the mailbox out at most every 50 ms (found), so that a million items make
// a few hundred hand-overs, not a million events. Pause, resume and stop go to the scan's
// connection from one more thread, one at a time: nothing on that connection locks, the loop
// never touches it, and two requests at once would mix their replies.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QThreadPool>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "agent_link.h"
#include "records.h"

class ScanRunner : public QObject {
    Q_OBJECT
public:
    // The agent's codes at the end of a scan (as on Linux, where the agent runs), and the
    // library's when the event stream broke off.
    static constexpr quint32 kComplete = 0, kStreamBroken = 22, kStopped = 125;

    ScanRunner(const QString &address, quint16 port, QObject *parent = nullptr);
    // Stops a running scan and waits for its end.
    ~ScanRunner() override;

    void start();
    // Control requests: only once the agent has accepted the scan (started).
    void pause();
    void resume();
    void stop();
    bool running() const;

signals:
    void started();
    // Items found since the last hand-over, and the latest progress (total -1: none yet).
    void found(const std::vector<MediaItem> &items, qint64 done, qint64 total);
    void paused();
    void resumed();
    // The scan's end: the agent's code, the library's 22, or the status of a start that failed;
    // `message` says it in words.
    void finished(quint32 code, const QString &message);
    void failed(const QString &what);

private:
    enum class State { Idle, Starting, Looping, Ended };

    static void onFoundItem(const char *item, uint64_t self);
    static void onProgress(int64_t done, int64_t total, uint64_t self);
    static void onCode(uint32_t code, uint64_t self);
    void runLoop();
    void askForHandOver();  // with mutex_ held
    void handOver();
    void finish(AgentStatus status, const QString &error);
    void control(const char *call, AgentStatus (*request)(NetConnection *), void (ScanRunner::*answered)());

    AgentLink link_;
    std::thread loop_;
    QThreadPool control_;  // one thread

    mutable std::mutex mutex_;  // what the callbacks share with the window's thread
    std::condition_variable stateChanged_;
    State state_ = State::Idle;
    std::vector<MediaItem> mailbox_;
    qint64 done_ = 0, total_ = -1, count_ = 0;
    quint32 code_ = kStreamBroken;
    bool handOverOwed_ = false;

    QElapsedTimer sinceHandOver_;  // the window's thread only
};
