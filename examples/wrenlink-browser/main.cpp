// wrenlink-browser: a desktop application on libWrenlink (kUsage in options.cpp says what it
// does). The window's classes live beside this file; this only reads the command line and ends
// the program.
#include <QApplication>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "leftovers.h"
#include "main_window.h"
#include "options.h"
#include "screenshot.h"

namespace {

constexpr std::chrono::seconds kExitGrace{3};

// Threads that a hung agent holds are still inside the library, and use the state that the
// leftovers keep for them: nothing may be freed under them, so the process ends without running
// any destructor. That is safe: the window has closed and nothing is left to save, and the system
// closes their sockets, which the agents see as a computer that went away.
[[noreturn]] void endWithoutLeftovers(int status) {
    for (const QString &what : Leftovers::instance().underWay())
        std::fprintf(stderr, "wrenlink-browser: at exit, %s\n", qPrintable(what));
    std::fflush(nullptr);
    std::_Exit(status);
}

}  // namespace

int main(int argc, char **argv) {
    const ParsedOptions parsed = parseOptions(argc, argv);
    if (parsed.action == ParsedOptions::Action::Help) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (parsed.action == ParsedOptions::Action::Error) {
        std::fprintf(stderr, "wrenlink-browser: %s\n%.*s", qPrintable(parsed.error),
                     static_cast<int>(std::strchr(kUsage, '\n') - kUsage + 1), kUsage);
        return 2;
    }
    QApplication app(argc, argv);
    int status = 0;
    {
        MainWindow window(parsed.options);
        window.show();
        if (!parsed.options.screenshot.isEmpty())
            saveScreenshotWhenFilled(window, parsed.options.screenshot, parsed.options.after);
        status = app.exec();
    }  // the window lets its agent objects go
    if (!Leftovers::instance().settle(kExitGrace)) endWithoutLeftovers(status);
    return status;
}
