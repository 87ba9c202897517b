#include "screenshot.h"

#include <QApplication>
#include <QPixmap>
#include <QTimer>
#include <cstdio>

#include "main_window.h"

namespace {

constexpr int kPollMs = 100;

// Drawing the window can ask for thumbnails that have not come yet (rows that came into view
// since): then the picture is thrown away and taken again once they are there.
void saveWhenSettled(MainWindow &window, const QString &path) {
    if (!window.isFilled()) {
        QTimer::singleShot(kPollMs, &window, [&window, path] { saveWhenSettled(window, path); });
        return;
    }
    const QPixmap shot = window.grab();
    if (!window.isFilled()) return saveWhenSettled(window, path);
    if (!shot.save(path, "PNG")) {
        std::fprintf(stderr, "wrenlink-browser: cannot write the screenshot %s\n", qPrintable(path));
        QApplication::exit(1);
        return;
    }
    QApplication::exit(0);
}

}  // namespace

void saveScreenshotWhenFilled(MainWindow &window, const QString &path, double afterSeconds) {
    QObject::connect(&window, &MainWindow::agentUnreachable, &window, [](const QString &what) {
        std::fprintf(stderr, "wrenlink-browser: %s\n", qPrintable(what));
        QApplication::exit(1);
    });
    auto *poll = new QTimer(&window);
    QObject::connect(poll, &QTimer::timeout, &window, [&window, poll, path, afterSeconds] {
        if (!window.isFilled()) return;
        poll->stop();
        QTimer::singleShot(static_cast<int>(afterSeconds * 1000), &window, [&window, path] { saveWhenSettled(window, path); });
    });
    poll->start(kPollMs);
}
