// The adb half of the library, on one worker thread that runs the calls in the order they were
// asked for. Tool runs are one at a time in the whole process (a call waits for another thread's
// run), so more threads would only wait; one queue keeps the window's thread free and the order
// of the user's actions (a forward before the connection that goes through it). A tool run has no
// time limit and cannot be given up: the destructor waits for the call under way and drops the
// calls still queued.
#pragma once

#include <QObject>
#include <QThread>
#include <atomic>
#include <functional>
#include <vector>

#include "records.h"

class AdbQueue : public QObject {
    Q_OBJECT
public:
    explicit AdbQueue(QObject *parent = nullptr);
    ~AdbQueue() override;

    // phonesListed, or adbMissing when the library finds no tool. A listing asked for while one
    // is still queued is the same listing.
    void listPhones();
    // adb forwards localPort of this machine to phonePort of the phone: forwarded.
    void forward(const QString &serial, quint16 localPort, quint16 phonePort);

signals:
    void phonesListed(const std::vector<Phone> &phones);
    void adbMissing(const QString &path);
    void forwarded(const QString &serial, quint16 localPort);
    void failed(const QString &what);

private:
    void enqueue(std::function<void()> call);

    QThread thread_;
    QObject *worker_;  // lives on thread_: the queued calls are its events
    std::atomic<bool> listingQueued_{false};
};
