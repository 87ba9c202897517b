#include "main_window.h"

#include <QSplitter>
#include <QStatusBar>
#include <QTimer>
#include <QVBoxLayout>

#include "agent_catalogue.h"
#include "agent_scan.h"
#include "agent_transfers.h"
#include "connect_panel.h"
#include "files_panel.h"
#include "leftovers.h"
#include "media_panel.h"
#include "phones_panel.h"
#include "scan_panel.h"

namespace {

// Agents end what they were asked to within milliseconds; one that takes longer is named.
constexpr int kLeftBehindAfterMs = 1000;

}  // namespace

MainWindow::MainWindow(const BrowserOptions &options, QWidget *parent)
    : QMainWindow(parent),
      options_(options),
      phones_(new PhonesPanel(&adb_)),
      connect_(new ConnectPanel),
      media_(new MediaPanel),
      scan_(new ScanPanel),
      files_(new FilesPanel) {
    setWindowTitle("Wrenlink browser");
    auto *left = new QWidget;
    auto *column = new QVBoxLayout(left);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(phones_, 1);
    column->addWidget(connect_);
    column->addWidget(files_);
    auto *right = new QSplitter(Qt::Vertical);
    right->addWidget(media_);
    right->addWidget(scan_);
    right->setStretchFactor(0, 3);
    right->setStretchFactor(1, 2);
    auto *split = new QSplitter;
    split->addWidget(left);
    split->addWidget(right);
    split->setStretchFactor(1, 1);
    setCentralWidget(split);
    resize(1200, 780);
    split->setSizes({420, 780});

    files_->selection = [this] { return media_->selectedItems(); };
    connect(&adb_, &AdbQueue::failed, this, &MainWindow::showStatus);
    connect(&adb_, &AdbQueue::adbMissing, this, [this](const QString &path) { showStatus("adb is missing at " + path); });
    connect(&adb_, &AdbQueue::forwarded, this, [this](const QString &serial, quint16 localPort) {
        if (localPort != forwarding_) return;  // asked for before a disconnect
        forwarding_ = 0;
        showStatus(QString("AdbForward: port %1 to the agent on %2").arg(localPort).arg(serial));
        openAgent(forwardAddress_, localPort);
    });
    connect(phones_, &PhonesPanel::listed, this, [this] {
        phonesListed_ = true;
        if (!connectWhenListed_) return;
        connectWhenListed_ = false;
        connectAgent(options_.address, options_.port, options_.forward);
    });
    connect(connect_, &ConnectPanel::connectAsked, this, &MainWindow::connectAgent);
    connect(connect_, &ConnectPanel::disconnectAsked, this, &MainWindow::disconnectAgent);
    connect(connect_, &ConnectPanel::installAsked, this, &MainWindow::installAgent);
    connect(connect_, &ConnectPanel::removeAsked, this, [this] {
        disconnectAgent();  // the connections go before the agent does
        adb_.removeAgent();
    });
    connect(&adb_, &AdbQueue::installReport, this, &MainWindow::showStatus);
    connect(&adb_, &AdbQueue::agentInstalled, this, [this](const QString &, quint16 port) {
        connect_->showInstalled(true);
        openAgent("127.0.0.1", port);
    });
    connect(&adb_, &AdbQueue::installFailed, this, [this](const QString &why) {
        connect_->showState(false, "Not connected");
        showStatus(why);
    });
    connect(&adb_, &AdbQueue::agentRemoved, this, [this] {
        connect_->showInstalled(false);
        showStatus("Removed the agent from the phone");
    });

    connect_->setTarget(options_.address, options_.port, options_.forward);
    if (options_.forward != 0) {
        connectWhenListed_ = true;
    } else {
        connectAgent(options_.address, options_.port, 0);
    }
}

// The agent objects and the adb queue let their workers go; nothing here waits for them.
MainWindow::~MainWindow() { disconnectAgent(); }

void MainWindow::connectAgent(const QString &address, quint16 port, quint16 forwardPort) {
    disconnectAgent();
    if (forwardPort == 0) return openAgent(address, port);
    const QString serial = phones_->chosenSerial();
    if (serial.isEmpty()) {
        showStatus("No authorised phone to forward the agent's port through");
        emit agentUnreachable(status());
        return;
    }
    forwarding_ = port;
    forwardAddress_ = address;
    connect_->showState(false, QString("adb forwards port %1 to port %2 of %3").arg(port).arg(forwardPort).arg(serial));
    adb_.forward(serial, port, forwardPort);
}

void MainWindow::installAgent(quint16 port) {
    const QString serial = phones_->chosenSerial();
    if (serial.isEmpty()) return showStatus("No authorised phone to install the agent on");
    disconnectAgent();
    connect_->showState(false, "Installing the agent on " + serial);
    adb_.installAgent(serial, port, options_.agentsDir);
}

void MainWindow::openAgent(const QString &address, quint16 port) {
    const QString where = address + ":" + QString::number(port);
    catalogue_ = std::make_unique<Catalogue>(address, port);
    connect(catalogue_.get(), &Catalogue::opened, this, [this, address, port] { agentOpened(address, port); });
    connect(catalogue_.get(), &Catalogue::failed, this, [this](const QString &what) {
        showStatus(what);
        if (transfers_ != nullptr) return;  // opened: the failure of one call
        connect_->showState(false, "Not connected");
        emit agentUnreachable(what);
    });
    connect_->showState(true, "Connecting to " + where);
    catalogue_->open();
}

void MainWindow::agentOpened(const QString &address, quint16 port) {
    const QString where = address + ":" + QString::number(port);
    transfers_ = std::make_unique<Transfers>(address, port);
    scanRunner_ = std::make_unique<ScanRunner>(address, port);
    connect(transfers_.get(), &Transfers::failed, this, &MainWindow::showStatus);
    connect(scanRunner_.get(), &ScanRunner::failed, this, &MainWindow::showStatus);
    connect(scanRunner_.get(), &ScanRunner::finished, this, [this](quint32, const QString &message) { showStatus(message); });
    media_->attach(catalogue_.get());
    files_->attach(transfers_.get());
    scan_->attach(scanRunner_.get());
    connect_->showState(true, "Connected to " + where);
    showStatus("Connected to the agent at " + where);
    catalogue_->list();
    if (options_.scan) scan_->startScan();
}

// The objects let their calls go without waiting for them (a new connection can be made at
// once); what an agent still holds after a short grace is named in the status line.
void MainWindow::disconnectAgent() {
    const bool letGo = catalogue_ != nullptr;
    forwarding_ = 0;
    media_->attach(nullptr);
    files_->attach(nullptr);
    scan_->attach(nullptr);
    scanRunner_.reset();
    transfers_.reset();
    catalogue_.reset();
    connect_->showState(false, "Not connected");
    if (letGo) QTimer::singleShot(kLeftBehindAfterMs, this, &MainWindow::showLeftBehind);
}

void MainWindow::showLeftBehind() {
    const QStringList held = Leftovers::instance().underWay();
    if (!held.isEmpty()) showStatus(held.join("; "));
}

bool MainWindow::isFilled() const { return phonesListed_ && media_->listed() && media_->thumbnailsSettled(); }

QString MainWindow::status() const { return statusBar()->currentMessage(); }

void MainWindow::showStatus(const QString &text) { statusBar()->showMessage(text); }
