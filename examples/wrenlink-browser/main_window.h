// The window: the five panels, the adb queue, and the three agent objects of a connection (the
// catalogue, the transfers and the scan, each on a connection of its own). Every library call
// runs on a worker thread of one of those objects; the window's thread only draws and reacts, and
// never waits for a worker: objects that go let their workers go (leftovers.h).
#pragma once

#include <QMainWindow>
#include <memory>

#include "adb_queue.h"
#include "options.h"

class Catalogue;
class ConnectPanel;
class FilesPanel;
class MediaPanel;
class PhonesPanel;
class ScanPanel;
class ScanRunner;
class Transfers;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(const BrowserOptions &options, QWidget *parent = nullptr);
    ~MainWindow() override;

    // forwardPort != 0: adb forwards `port` to that port of the chosen phone first.
    void connectAgent(const QString &address, quint16 port, quint16 forwardPort);
    void disconnectAgent();
    // Installs the agent on the chosen phone through adb and connects to it at 127.0.0.1:port.
    void installAgent(quint16 port);
    // Phones listed, the catalogue read and the thumbnails in view drawn.
    bool isFilled() const;
    QString status() const;

    PhonesPanel *phones() const { return phones_; }
    MediaPanel *media() const { return media_; }
    ScanPanel *scan() const { return scan_; }
    FilesPanel *files() const { return files_; }

signals:
    void agentUnreachable(const QString &what);

private:
    void openAgent(const QString &address, quint16 port);
    void showLeftBehind();
    void agentOpened(const QString &address, quint16 port);
    void showStatus(const QString &text);

    const BrowserOptions options_;
    AdbQueue adb_;
    PhonesPanel *phones_;
    ConnectPanel *connect_;
    MediaPanel *media_;
    ScanPanel *scan_;
    FilesPanel *files_;

    std::unique_ptr<Catalogue> catalogue_;
    std::unique_ptr<Transfers> transfers_;
    std::unique_ptr<ScanRunner> scanRunner_;
    bool phonesListed_ = false;
    bool connectWhenListed_ = false;  // --forward: the phone to forward through is not known yet
    quint16 forwarding_ = 0;          // the local port of a forward asked for, until it is made
    QString forwardAddress_;
};
