// A scan of the phone on a connection of its own. NDDStartScan runs its event loop, and so the
// callbacks, on the thread that calls it: here a thread of the scan's own. The callbacks only put
// what they get in a mailbox, and ask the window's thread for one hand-over when none is owed
// yet; the window takes the mailbox out at most every 50 ms (found), so that a million items make
// a few hundred hand-overs, not a million events. Pause, resume and stop go to the scan's
// connection from one more thread, one at a time: nothing on that connection locks, the loop
// never touches it, and two requests at once would mix their replies.
//
// The loop ends only when the agent closes the event stream: nothing on this side can end it. So
// the runner never waits for it. What the scan's threads use lives in a Loop that the runner
// shares with them; a runner that goes hands its Loop to the leftovers, which ask the agent to
// stop and wait for the loop's end off the window's thread, for as long as the agent takes.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <memory>
#include <vector>

#include "records.h"

class ScanRunner : public QObject {
    Q_OBJECT
public:
    // The agent's codes at the end of a scan (as on Linux, where the agent runs), and the
    // library's when the event stream broke off.
    static constexpr quint32 kComplete = 0, kStreamBroken = 22, kStopped = 125;

    ScanRunner(const QString &address, quint16 port, QObject *parent = nullptr);
    // Lets a running scan go without waiting for its end.
    ~ScanRunner() override;

    void start();
    // Control requests: only once the agent has accepted the scan (started).
    void pause();
    void resume();
    void stop();
    // From start() until finished.
    bool running() const { return running_; }

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
    class Loop;
    void handOver();
    void finish(AgentStatus status, const QString &error);

    std::shared_ptr<Loop> loop_;
    bool running_ = false;
    QElapsedTimer sinceHandOver_;
};
