#include "adb_queue.h"

#include <unistd.h>

#include "agent_install.h"
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

AdbQueue::AdbQueue(QObject *parent) : QObject(parent), worker_(new QObject) {
    worker_->moveToThread(&thread_);
    connect(&thread_, &QThread::finished, worker_, &QObject::deleteLater);
    thread_.start();
}

AdbQueue::~AdbQueue() {
    thread_.quit();
    thread_.wait();
    installed_.reset();  // the queue's thread has ended: its agent is stopped from here
}

void AdbQueue::enqueue(std::function<void()> call) {
    QMetaObject::invokeMethod(worker_, std::move(call), Qt::QueuedConnection);
}

void AdbQueue::listPhones() {
    if (listingQueued_.exchange(true)) return;
    enqueue([this] {
        listingQueued_ = false;
        const QString adb = QString::fromUtf8(AndGetAdbFullpath());
        if (::access(adb.toUtf8().constData(), X_OK) != 0) {
            onWindowThread(this, [this, adb] { emit adbMissing(adb); });
            return;
        }
        QString error;
        const std::vector<Phone> phones = readPhones(error);
        onWindowThread(this, [this, phones, error] {
            if (!error.isEmpty()) emit failed(error);
            emit phonesListed(phones);
        });
    });
}

void AdbQueue::forward(const QString &serial, quint16 localPort, quint16 phonePort) {
    enqueue([this, serial, localPort, phonePort] {
        // Always 0: a forward that adb refused shows when the connection through it fails.
        AdbForward(serial.toUtf8().constData(), localPort, phonePort);
        onWindowThread(this, [this, serial, localPort] { emit forwarded(serial, localPort); });
    });
}

void AdbQueue::installAgent(const QString &serial, quint16 controlPort) {
    enqueue([this, serial, controlPort] {
        installed_.reset();
        installed_ = std::make_unique<wrenlink_example::AgentInstall>(
            wrenlink_example::AgentInstallSettings{.serial = serial.toStdString(), .agents_dir = {}, .control_port = controlPort},
            [this](const std::string &line) {
                onWindowThread(this, [this, line = QString::fromStdString(line)] { emit installReport(line); });
            });
        if (!installed_->install()) {
            const QString why = "Installing the agent: " + QString::fromStdString(installed_->error());
            installed_.reset();
            onWindowThread(this, [this, why] { emit installFailed(why); });
            return;
        }
        onWindowThread(this, [this, serial, controlPort] { emit agentInstalled(serial, controlPort); });
    });
}

void AdbQueue::removeAgent() {
    enqueue([this] {
        if (installed_ && !installed_->remove()) {
            const QString why = "Removing the agent: " + QString::fromStdString(installed_->error());
            onWindowThread(this, [this, why] { emit failed(why); });
        }
        installed_.reset();
        onWindowThread(this, [this] { emit agentRemoved(); });
    });
}
