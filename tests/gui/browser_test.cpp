// The browser (examples/wrenlink-browser) through its own window and panels, against the
// reference agent serving a sample phone, and a simulated phone through Debian's adb. The binary
// lives in the folder whose Resources/adb is /usr/bin/adb; its adb server runs on a private port
// and is stopped at the end.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QPushButton>
#include <QTimer>
#include <QtTest>
#include <filesystem>
#include <fstream>

#include "doubles/temp_tree.h"
#include "doubles/tool_runs.h"
#include "e2e/adb/loopback_server.h"
#include "e2e/agent/agent_process.h"
#include "files_panel.h"
#include "leftovers.h"
#include "main_window.h"
#include "media_model.h"
#include "media_panel.h"
#include "phones_panel.h"
#include "scan_panel.h"
#include "support/child_process.h"

using wrenlink::e2e::AgentProcess;
using wrenlink::test::TempTree;
namespace fs = std::filesystem;

namespace {

constexpr int kSlowMs = 10000;  // a bound on waits that end by themselves, for a slow machine
constexpr const char *kLargeFile = "Download/large.bin";

std::string file_bytes(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A simulated phone, connected to the test's adb server: `serial` is set once the server lists it.
void connect_phone(wrenlink::support::ChildProcess &phone, const std::string &profile, const fs::path &sandbox, std::string &serial) {
    phone = wrenlink::support::ChildProcess({WRENLINK_PHONE_PATH, "--phone", "port=0,profile=" + profile + ",sandbox=" + sandbox.string()},
                                            {.stderrPath = "", .endWithParent = true});
    const std::string ready = phone.read_line();
    QVERIFY(ready.starts_with("ready "));
    wrenlink::test::adb_text((" connect " + ready.substr(6)).c_str());
    QTRY_VERIFY_WITH_TIMEOUT(wrenlink::test::adb_text((" -s " + ready.substr(6) + " get-state").c_str()).starts_with("device"), kSlowMs);
    serial = ready.substr(6);
}

int count_files(const fs::path &root, bool imagesOnly) {
    int count = 0;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        const std::string ext = entry.path().extension().string();
        if (entry.is_regular_file() && (!imagesOnly || ext == ".jpg" || ext == ".png")) ++count;
    }
    return count;
}

}  // namespace

class BrowserTest : public QObject {
    Q_OBJECT

private:
    TempTree phone_, scratch_;
    std::unique_ptr<MainWindow> window_;

    std::unique_ptr<MainWindow> open_window(uint32_t agentPort) {
        BrowserOptions options;
        options.port = static_cast<quint16>(agentPort);
        auto window = std::make_unique<MainWindow>(options);
        window->show();
        return window;
    }

private slots:
    void initTestCase() {
        ::setenv("ANDROID_ADB_SERVER_PORT", std::to_string(wrenlink::test::free_loopback_port()).c_str(), 1);
        ::setenv("HOME", scratch_.root().c_str(), 1);  // the server keeps its key in $HOME/.android
        QCOMPARE(QProcess::execute(WRENLINK_SAMPLE_PHONE_PATH, {QString::fromStdString(phone_.root().string())}), 0);
        phone_.write(kLargeFile, "");
        fs::resize_file(phone_.host(kLargeFile), 1ull << 30);  // sparse: quick to serve, slow to copy whole
    }

    void cleanup() { window_.reset(); }

    void cleanupTestCase() {
        if (::access("/usr/bin/adb", X_OK) == 0) wrenlink::test::adb_text(" kill-server");
    }

    void phoneShowsUpWithItsModelAndItsAgentAnswersThroughTheForward() {
        if (::access("/usr/bin/adb", X_OK) != 0) QSKIP("/usr/bin/adb is not installed");
        wrenlink::support::ChildProcess simulated;
        std::string serial;
        connect_phone(simulated, WRENLINK_PHONE_PROFILE, scratch_.host("sandbox"), serial);
        QVERIFY(!serial.empty());

        AgentProcess agent(phone_.root());
        BrowserOptions options;
        options.port = wrenlink::test::free_loopback_port();
        options.forward = static_cast<quint16>(agent.port());
        window_ = std::make_unique<MainWindow>(options);
        window_->show();
        auto listed = [&] {
            for (const Phone &p : window_->phones()->phones())
                if (p.serial.toStdString() == serial) return p.model + " " + p.maker + " " + p.android;
            return QString();
        };
        QTRY_COMPARE_WITH_TIMEOUT(listed(), QString("Wren One Wrenfield 9"), kSlowMs);
        QTRY_VERIFY_WITH_TIMEOUT(window_->media()->listed(), kSlowMs);
        QCOMPARE(window_->media()->images()->rowCount(), count_files(phone_.root(), true));

        // The install button, on the adb queue's thread: no phone builds lie beside this program.
        window_->installAgent(options.port);
        QTRY_VERIFY_WITH_TIMEOUT(window_->status().contains("no agent build for this phone's processor"), kSlowMs);
    }

    void scanRunsToItsEndWhileTheWindowKeepsTurning() {
        AgentProcess agent(phone_.root(), {"--scan-delay-us", "20000"});  // a file every 20 ms at least
        window_ = open_window(agent.port());
        QTRY_VERIFY(window_->media()->listed());
        int ticks = 0, handOvers = 0;
        QTimer tick;
        connect(&tick, &QTimer::timeout, [&] { ++ticks; });
        connect(window_->scan()->found(), &QAbstractItemModel::rowsInserted, [&] { ++handOvers; });
        tick.start(10);
        window_->scan()->startScan();
        QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->summary().startsWith("Scan complete"), kSlowMs);
        tick.stop();
        QCOMPARE(window_->scan()->found()->rowCount(), count_files(phone_.root(), false));
        QVERIFY2(ticks >= 5, qPrintable(QString("the window's timer fired %1 times during the scan").arg(ticks)));
        QVERIFY2(handOvers >= 2, "the items came all at once, not as they were found");
    }

    void scanIsPausedResumedAndStopped() {
        AgentProcess agent(phone_.root(), {"--scan-delay-us", "50000"});
        window_ = open_window(agent.port());
        QTRY_VERIFY(window_->media()->listed());
        auto button = [&](const char *name) { return window_->scan()->findChild<QPushButton *>(name); };
        const MediaModel *found = window_->scan()->found();
        window_->scan()->startScan();
        QTRY_VERIFY_WITH_TIMEOUT(button("pause")->isEnabled() && found->rowCount() >= 2, kSlowMs);
        QTest::mouseClick(button("pause"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(button("resume")->isEnabled(), kSlowMs);  // the agent has parked the scan
        const int atPause = found->rowCount();
        QTest::qWait(300);
        QCOMPARE(found->rowCount(), atPause);
        QTest::mouseClick(button("resume"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(found->rowCount() > atPause, kSlowMs);
        QTest::mouseClick(button("stop"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->summary().startsWith("Scan stopped after"), kSlowMs);
        QVERIFY(found->rowCount() < count_files(phone_.root(), false));
        QVERIFY(button("start")->isEnabled());
    }

    void aFloodOfFoundItemsReachesTheWindowInFewHandOvers() {
        TempTree many;
        constexpr int kFiles = 5000;
        for (int i = 0; i < kFiles; ++i) std::ofstream(many.host("f" + std::to_string(i)));
        AgentProcess agent(many.root());
        window_ = open_window(agent.port());
        QTRY_VERIFY(window_->media()->listed());
        int handOvers = 0;
        connect(window_->scan()->found(), &QAbstractItemModel::rowsInserted, [&] { ++handOvers; });
        window_->scan()->startScan();
        QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->summary().startsWith("Scan complete"), kSlowMs);
        QCOMPARE(window_->scan()->found()->rowCount(), kFiles);
        QVERIFY2(handOvers < kFiles / 10, qPrintable(QString("%1 hand-overs").arg(handOvers)));
    }

    void imageTabShowsOneThumbnailPerImage() {
        phone_.write("DCIM/broken.jpg", "not a picture");
        const struct Removed {
            fs::path path;
            ~Removed() { fs::remove(path); }
        } broken{phone_.host("DCIM/broken.jpg")};
        AgentProcess agent(phone_.root());
        window_ = open_window(agent.port());
        QTRY_VERIFY(window_->isFilled());
        const MediaModel *images = window_->media()->images();
        QCOMPARE(images->rowCount(), count_files(phone_.root(), true));
        for (int row = 0; row < images->rowCount(); ++row) {
            const QImage original(QString::fromStdString(phone_.root().string()) + images->item(row).path);
            const QSize side(MediaModel::kThumbnailSide, MediaModel::kThumbnailSide);
            QCOMPARE(images->thumbnail(row).isNull(), original.isNull());
            if (!original.isNull()) QCOMPARE(images->thumbnail(row).size(), original.size().scaled(side, Qt::KeepAspectRatio));
        }
    }

    void copiesAreExactAndACancelledCopyLeavesTheNextOneWorking() {
        AgentProcess agent(phone_.root());
        window_ = open_window(agent.port());
        QTRY_VERIFY(window_->media()->listed());
        FilesPanel *files = window_->files();
        TempTree folder;
        files->setFolder(QString::fromStdString(folder.root().string()));
        const MediaItem picture = window_->media()->images()->item(0);
        const fs::path pictureCopy = folder.host(picture.name.toStdString());
        auto copyPicture = [&] {
            files->copy({picture});
            QTRY_VERIFY_WITH_TIMEOUT(files->state().startsWith("Copied"), kSlowMs);
            QCOMPARE(file_bytes(pictureCopy), phone_.read(picture.path.mid(1).toStdString()));
        };
        copyPicture();
        if (QTest::currentTestFailed()) return;

        MediaItem gone;  // listed once, deleted since
        gone.path = "/DCIM/gone.jpg";
        files->copy({gone});
        QTRY_COMPARE_WITH_TIMEOUT(files->state(), QString("NFCFileRefOpen /DCIM/gone.jpg: status 2 (No such file or directory)"), kSlowMs);
        QVERIFY2(!folder.exists("gone.jpg"), "nothing is left of a copy that failed");

        MediaItem large;
        large.path = QString("/") + kLargeFile;
        large.size = fs::file_size(phone_.host(kLargeFile));
        const fs::path largeCopy = folder.host("large.bin");
        files->copy({large});
        QTRY_VERIFY_WITH_TIMEOUT(fs::exists(largeCopy) && fs::file_size(largeCopy) > 0, kSlowMs);
        // A phone that stops answering in the middle: the read waits, and only the cancel ends it.
        ::kill(agent.pid(), SIGSTOP);
        files->cancel();
        QTRY_COMPARE_WITH_TIMEOUT(files->state(), QString("Cancelled"), kSlowMs);
        ::kill(agent.pid(), SIGCONT);
        QVERIFY2(!fs::exists(largeCopy), "the partial copy is removed");
        fs::remove(pictureCopy);
        copyPicture();
        if (QTest::currentTestFailed()) return;

        // A file of this computer sent to the phone, then deleted from it.
        std::string content(300 * 1000, '\0');
        for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 251);
        folder.write("sent.bin", content);
        files->send(QString::fromStdString(folder.host("sent.bin").string()));
        QTRY_VERIFY_WITH_TIMEOUT(files->state().startsWith("Sent"), kSlowMs);
        QCOMPARE(phone_.read("Download/sent.bin"), content);
        files->deleteSent();
        QTRY_VERIFY_WITH_TIMEOUT(files->state().startsWith("Deleted"), kSlowMs);
        QVERIFY(!phone_.exists("Download/sent.bin"));
    }

    void disconnectingMidScanAndMidCopyEndsBothAndTheNextConnectionWorks() {
        AgentProcess agent(phone_.root(), {"--scan-delay-us", "50000"});
        window_ = open_window(agent.port());
        QTRY_VERIFY(window_->media()->listed());
        TempTree folder;
        window_->files()->setFolder(QString::fromStdString(folder.root().string()));
        MediaItem large;
        large.path = QString("/") + kLargeFile;
        large.size = fs::file_size(phone_.host(kLargeFile));
        window_->scan()->startScan();
        window_->files()->copy({large});
        QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->found()->rowCount() >= 1 && folder.exists("large.bin"), kSlowMs);
        window_->disconnectAgent();
        QTRY_VERIFY2_WITH_TIMEOUT(!folder.exists("large.bin"), "the copy ended and its partial file went with the connection", kSlowMs);
        QTRY_VERIFY_WITH_TIMEOUT(Leftovers::instance().underWay().isEmpty(), kSlowMs);  // the agent has ended the scan

        window_->connectAgent("127.0.0.1", static_cast<quint16>(agent.port()), 0);
        QTRY_VERIFY_WITH_TIMEOUT(window_->media()->listed(), kSlowMs);
        window_->scan()->startScan();
        QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->summary().startsWith("Scan complete"), kSlowMs);
    }

    void phoneThatGoesAwayMidScanGivesAMessage() {
        AgentProcess agent(phone_.root(), {"--scan-delay-us", "100000"});
        window_ = open_window(agent.port());
        QTRY_VERIFY(window_->media()->listed());
        window_->scan()->startScan();
        QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->found()->rowCount() >= 2, kSlowMs);
        ::kill(agent.pid(), SIGKILL);  // the phone goes away without a word
        QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->summary().contains("broke off"), kSlowMs);
        QCOMPARE(window_->status(), window_->scan()->summary());
    }

    // An agent that freezes in the middle of a scan holds neither Disconnect nor the window's
    // close: the scan is left behind and the status line says so, a ping it never answers is cut,
    // another agent can be scanned meanwhile, and once the agents go on or go away everything let
    // go ends without touching freed memory.
    void anAgentThatHangsMidScanHoldsNeitherDisconnectNorClose() {
        AgentProcess hung(phone_.root(), {"--scan-delay-us", "50000"}), other(phone_.root(), {"--scan-delay-us", "50000"});
        window_ = open_window(hung.port());
        QTRY_VERIFY_WITH_TIMEOUT(window_->media()->listed(), kSlowMs);
        auto freezeMidScan = [&](const AgentProcess &agent) {
            window_->scan()->startScan();
            QTRY_VERIFY_WITH_TIMEOUT(window_->scan()->found()->rowCount() >= 1, kSlowMs);
            ::kill(agent.pid(), SIGSTOP);
        };
        freezeMidScan(hung);
        window_->disconnectAgent();
        QTRY_VERIFY_WITH_TIMEOUT(window_->status().contains("the agent does not end its scan; it is left behind"), kSlowMs);

        window_->connectAgent("127.0.0.1", static_cast<quint16>(hung.port()), 0);
        QTest::qWait(300);  // the catalogue's connection is made; its ping waits
        window_->disconnectAgent();
        QTRY_COMPARE_WITH_TIMEOUT(Leftovers::instance().underWay().size(), qsizetype(1), kSlowMs);  // the scan alone

        window_->connectAgent("127.0.0.1", static_cast<quint16>(other.port()), 0);
        QTRY_VERIFY_WITH_TIMEOUT(window_->media()->listed(), kSlowMs);
        freezeMidScan(other);
        QTimer tick;
        QSignalSpy ticks(&tick, &QTimer::timeout);
        tick.start(10);
        window_.reset();
        QTRY_VERIFY(ticks.size() >= 5);
        QCOMPARE(Leftovers::instance().underWay().filter("does not end its scan").size(), qsizetype(2));

        ::kill(hung.pid(), SIGCONT);
        ::kill(other.pid(), SIGKILL);
        QVERIFY(Leftovers::instance().settle(std::chrono::milliseconds(kSlowMs)));
    }

    // Install agent with the builds of --agents: the build for the phone's processor pushed to a
    // simulated phone and started there under qemu-user, the catalogue read through its forwards;
    // Remove stops it and takes the forwards away.
    void installButtonRunsTheAgentOnThePhoneAndRemoveTakesItAway() {
        const std::string agents = WRENLINK_PHONE_AGENTS_DIR;
        std::string abi;
        for (const auto &[build, cpu] : {std::pair{"arm64-v8a", "aarch64"}, std::pair{"x86_64", "x86_64"}})
            if (abi.empty() && fs::exists(agents + "/" + build + "/wrenlink-agent") && fs::exists(std::string("/usr/bin/qemu-") + cpu + "-static"))
                abi = build;
        if (::access("/usr/bin/adb", X_OK) != 0) QSKIP("/usr/bin/adb is not installed");
        if (abi.empty()) QSKIP(qPrintable(QString::fromStdString("no arm64-v8a or x86_64 build in " + agents + " with its qemu-user-static")));
        if (QProcess::execute("sh", {"-c", "unshare --mount true || unshare --user --mount true"}) != 0)
            QSKIP("no mount namespace here: the simulated phone cannot give the agent its storage as root");
        scratch_.write("install.prop", "ro.product.model=Wren Two\nro.product.cpu.abi=" + abi + "\nphone.storage=/sdcard /dev/fuse 8000000 3000000\n");
        fs::create_directories(scratch_.host("install/sdcard"));
        fs::copy(phone_.host("DCIM"), scratch_.host("install/sdcard/DCIM"), fs::copy_options::recursive);
        wrenlink::support::ChildProcess simulated;
        std::string serial;
        connect_phone(simulated, scratch_.host("install.prop").string(), scratch_.host("install"), serial);
        QVERIFY(!serial.empty());

        BrowserOptions options;
        options.port = wrenlink::test::free_loopback_port();
        options.agentsDir = QString::fromStdString(agents);
        window_ = std::make_unique<MainWindow>(options);
        QTRY_COMPARE_WITH_TIMEOUT(window_->phones()->chosenSerial().toStdString(), serial, kSlowMs);
        auto *install = window_->findChild<QPushButton *>("install");
        QTest::mouseClick(install, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(window_->media()->listed(), 3 * kSlowMs);
        QCOMPARE(window_->media()->images()->rowCount(), count_files(scratch_.host("install/sdcard"), true));
        QTest::mouseClick(install, Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(window_->status(), QString("Removed the agent from the phone"), kSlowMs);
        const std::string stop = " -s " + serial + " shell /data/local/tmp/wrenlink-agent --stop";
        QCOMPARE(wrenlink::test::adb_text(stop.c_str()), std::string("no agent running\n"));
        QVERIFY(wrenlink::test::adb_text(" forward --list").find(serial) == std::string::npos);
    }

    void deviceListReadsEveryStateAndSerialsWithDashes_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("phones");
        QTest::newRow("none") << "" << "";
        QTest::newRow("states") << "A-author;B-unauthor;C-offline;" << "A 0,B 1,C 2,";
        QTest::newRow("dashes") << "emulator-5554-author;" << "emulator-5554 0,";
        QTest::newRow("no state") << "nodash;-author;" << "";
    }

    void deviceListReadsEveryStateAndSerialsWithDashes() {
        QFETCH(QString, text);
        QFETCH(QString, phones);
        QString read;
        for (const Phone &phone : phonesFromDeviceList(text.toUtf8().constData()))
            read += phone.serial + " " + QString::number(static_cast<int>(phone.state)) + ",";
        QCOMPARE(read, phones);
    }

    void commandLine_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("says");  // on stdout for status 0, else on stderr
        QTest::newRow("help") << QStringList{"--help"} << 0 << "usage: wrenlink-browser [--address A]";
        QTest::newRow("unknown") << QStringList{"--bogus"} << 2 << "wrenlink-browser: unknown option: --bogus";
        QTest::newRow("stray") << QStringList{"stray"} << 2 << "unexpected argument: stray";
        QTest::newRow("port") << QStringList{"--port", "0"} << 2 << "--port takes a number from 1 to 65535, not '0'";
        QTest::newRow("address") << QStringList{"--address", "phone"} << 2 << "--address takes a dotted IPv4 address";
        QTest::newRow("after alone") << QStringList{"--after", "1"} << 2 << "--after goes with --screenshot";
        QTest::newRow("no value") << QStringList{"--screenshot"} << 2 << "--screenshot needs a value";
        QTest::newRow("agents") << QStringList{"--agents", "/nonexistent"} << 2 << "--agents takes a folder of phone builds, not '/nonexistent'";
    }

    void commandLine() {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, says);
        QProcess browser;
        browser.start(WRENLINK_BROWSER_PATH, arguments);
        QVERIFY(browser.waitForFinished(kSlowMs));
        QCOMPARE(browser.exitCode(), status);
        const QString out = browser.readAllStandardOutput(), err = browser.readAllStandardError();
        QVERIFY2((status == 0 ? out : err).contains(says), qPrintable(out + err));
        QVERIFY((status == 0 ? err : out).isEmpty());
    }

    void screenshotShowsTheFilledWindow() {
        AgentProcess agent(phone_.root());
        const QString shot = QString::fromStdString(scratch_.host("shot.png").string());
        QProcess browser;
        browser.start(WRENLINK_BROWSER_PATH, {"--port", QString::number(agent.port()), "--screenshot", shot});
        QVERIFY(browser.waitForFinished(kSlowMs));
        QCOMPARE(browser.exitCode(), 0);
        QVERIFY(!QImage(shot).isNull());

        browser.start(WRENLINK_BROWSER_PATH, {"--port", QString::number(wrenlink::test::free_loopback_port()), "--screenshot", shot});
        QVERIFY(browser.waitForFinished(kSlowMs));
        QCOMPARE(browser.exitCode(), 1);
        QVERIFY(browser.readAllStandardError().contains("NetConnectionOpen"));
    }
};

QTEST_MAIN(BrowserTest)
#include "browser_test.moc"
