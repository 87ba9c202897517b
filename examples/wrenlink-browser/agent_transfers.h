// The transfer connection: copies from the phone, a file sent to the phone and deleted again, one
// at a time on a worker thread, on a connection of their own so that a cancel leaves browsing and
// scanning alone. Cancel closes that connection from the window's thread: the call that waits on
// it returns at once (the only way to give up on a call, since none has a time limit), the partial
// file is removed, and the worker opens a new connection for the next transfer.
#pragma once

#include <QObject>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

#include "records.h"

class Transfers : public QObject {
    Q_OBJECT
public:
    Transfers(const QString &address, quint16 port, QObject *parent = nullptr);
    // Lets a transfer under way go (letGo in agent_work.h): the connection is shut, so that it
    // ends, and its partial file is removed off the window's thread.
    ~Transfers() override;

    // Copies the items into `folder` under their names: copied, cancelled or failed.
    void copyToComputer(const std::vector<MediaItem> &items, const QString &folder);
    // Sends a file of this computer into `phoneFolder`: sent, cancelled or failed.
    void sendToPhone(const QString &localPath, const QString &phoneFolder);
    void deleteOnPhone(const QString &phonePath);  // deleted or failed
    void cancel();

signals:
    void progressed(quint64 done, quint64 total);  // bytes, at most every 50 ms and at the end
    void copied(const QStringList &localPaths);
    void sent(const QString &phonePath);
    void deleted(const QString &phonePath);
    void cancelled();
    void failed(const QString &what);

private:
    class Work;
    void run(std::function<void(Work &)> transfer);

    std::shared_ptr<Work> work_;  // one thread: transfers in the order asked for
};
