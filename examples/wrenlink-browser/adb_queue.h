// The adb half of the library, on one worker thread that runs the calls in the order they were
// asked for. Tool runs are one at a time in the whole process (a call waits for another thread's
// run), so more threads would only wait; one queue keeps the window's thread free and the order
// of the user's actions (a forward before the connection that goes through it). A tool run has no
// time limit and cannot be given up, and an install waits for its agent to answer: the destructor
// lets the queue go (leftovers.h) rather than wait for the call under way.
#pragma once

#include <QObject>
#include <functional>
#include <memory>
#include <vector>

#include "records.h"

class AdbQueue : public QObject {
    Q_OBJECT
public:
    explicit AdbQueue(QObject *parent = nullptr);
    // Drops the calls still queued; the call under way ends on the queue's thread, which then
    // removes an agent it installed, off the window's thread.
    ~AdbQueue() override;

    // phonesListed, or adbMissing when the library finds no tool. A listing asked for while one
    // is still queued is the same listing.
    void listPhones();
    // adb forwards localPort of this machine to phonePort of the phone: forwarded.
    void forward(const QString &serial, quint16 localPort, quint16 phonePort);
    // Installs the agent on the phone and has adb forward controlPort (and the scan's event port)
    // to it: installReport for each step, then agentInstalled or installFailed. The phone builds
    // are DIR/<abi>/wrenlink-agent (empty: those of the install tree). Removing it stops it on the
    // phone and removes the forwards (agentRemoved); so does the destructor.
    void installAgent(const QString &serial, quint16 controlPort, const QString &agentsDir);
    void removeAgent();

signals:
    void phonesListed(const std::vector<Phone> &phones);
    void adbMissing(const QString &path);
    void forwarded(const QString &serial, quint16 localPort);
    void installReport(const QString &line);
    void agentInstalled(const QString &serial, quint16 controlPort);
    void installFailed(const QString &why);
    void agentRemoved();
    void failed(const QString &what);

private:
    struct Queue;
    void enqueue(std::function<void(Queue &)> call);

    std::shared_ptr<Queue> queue_;
};
