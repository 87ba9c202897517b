#include "adb_queue.h"

#include <unistd.h>

#include <QThread>
#include <atomic>

#include "agent_install.h"
#include "leftovers.h"
#include "window_thread.h"

namespace {

// Phones with their state and, for the authorised ones, their properties. Two listings, since
// AdbGetPhoneList leaves offline phones out and AdbGetDevicesList reads no properties.
std::vector<Phone> readPhones(QString &error) {
    char states[2048] = {};  // a list without phones writes nothing, not even a terminator
    if (AdbGetDevicesList(states) != 0) {
        error = "AdbGetDevicesList: -1 (adb's text says error or fail)";
        return {};
    }
    std::vector<Phone> phones = phonesFromDeviceList(states);
    PhoneInfo *infos = nullptr;
    uint32_t count = 0;
    AdbGetPhoneList(&infos, &count);
    for (uint32_t i = 0; i < count; ++i) {
        for (Phone &phone : phones) {
            if (phone.serial != fieldText(infos[i].serial)) continue;
            phone.model = fieldText(infos[i].productModel);
            phone.maker = fieldText(infos[i].manufacturer);
            phone.android = fieldText(infos[i].softVersion);
        }
    }
    WrenlinkFree(infos);
    return phones;
}

}  // namespace

// The queue's thread and what its calls share; the leftovers hold it after the window has let
// the queue go, until the thread has ended.
struct AdbQueue::Queue {
    explicit Queue(AdbQueue *front) : worker(new QObject), toWindow(front) {}

    QThread thread;
    QObject *worker;  // lives on `thread`: the queued calls are its events
    std::atomic<bool> listingQueued{false};
    std::atomic<bool> closing{false};
    std::unique_ptr<wrenlink_example::AgentInstall> installed;  // the queue's thread only
    ToWindow<AdbQueue> toWindow;
};

AdbQueue::AdbQueue(QObject *parent) : QObject(parent), queue_(std::make_shared<Queue>(this)) {
    queue_->worker->moveToThread(&queue_->thread);
    connect(&queue_->thread, &QThread::finished, queue_->worker, &QObject::deleteLater);
    queue_->thread.start();
}

AdbQueue::~AdbQueue() {
    queue_->toWindow.cut();
    queue_->closing = true;
    QMetaObject::invokeMethod(
        queue_->worker,
        [queue = queue_.get()] {
            queue->installed.reset();  // stops the agent on the phone and removes the forwards
            QThread::currentThread()->quit();
        },
        Qt::QueuedConnection);
    Leftovers::instance().add("adb: a tool run under way is left behind", [queue = queue_] { queue->thread.wait(); });
}

// The queue outlives its thread, which the leftovers wait for before it goes.
void AdbQueue::enqueue(std::function<void(Queue &)> call) {
    QMetaObject::invokeMethod(
        queue_->worker,
        [queue = queue_.get(), call = std::move(call)] {
            if (!queue->closing) call(*queue);
        },
        Qt::QueuedConnection);
}

void AdbQueue::listPhones() {
    if (queue_->listingQueued.exchange(true)) return;
    enqueue([](Queue &queue) {
        queue.listingQueued = false;
        const QString adb = QString::fromUtf8(AndGetAdbFullpath());
        if (::access(adb.toUtf8().constData(), X_OK) != 0) {
            queue.toWindow([adb](AdbQueue &front) { emit front.adbMissing(adb); });
            return;
        }
        QString error;
        const std::vector<Phone> phones = readPhones(error);
        queue.toWindow([phones, error](AdbQueue &front) {
            if (!error.isEmpty()) emit front.failed(error);
            emit front.phonesListed(phones);
        });
    });
}

void AdbQueue::forward(const QString &serial, quint16 localPort, quint16 phonePort) {
    enqueue([serial, localPort, phonePort](Queue &queue) {
        // Always 0: a forward that adb refused shows when the connection through it fails.
        AdbForward(serial.toUtf8().constData(), localPort, phonePort);
        queue.toWindow([serial, localPort](AdbQueue &front) { emit front.forwarded(serial, localPort); });
    });
}

void AdbQueue::installAgent(const QString &serial, quint16 controlPort, const QString &agentsDir) {
    enqueue([serial, controlPort, agentsDir](Queue &queue) {
        queue.installed.reset();
        queue.installed = std::make_unique<wrenlink_example::AgentInstall>(
            wrenlink_example::AgentInstallSettings{
                .serial = serial.toStdString(), .agents_dir = agentsDir.toStdString(), .control_port = controlPort},
            [&queue](const std::string &line) {
                queue.toWindow([line = QString::fromStdString(line)](AdbQueue &front) { emit front.installReport(line); });
            });
        if (!queue.installed->install()) {
            const QString why = "Installing the agent: " + QString::fromStdString(queue.installed->error());
            queue.installed.reset();
            queue.toWindow([why](AdbQueue &front) { emit front.installFailed(why); });
            return;
        }
        queue.toWindow([serial, controlPort](AdbQueue &front) { emit front.agentInstalled(serial, controlPort); });
    });
}

void AdbQueue::removeAgent() {
    enqueue([](Queue &queue) {
        if (queue.installed && !queue.installed->remove()) {
            const QString why = "Removing the agent: " + QString::fromStdString(queue.installed->error());
            queue.toWindow([why](AdbQueue &front) { emit front.failed(why); });
        }
        queue.installed.reset();
        queue.toWindow([](AdbQueue &front) { emit front.agentRemoved(); });
    });
}
