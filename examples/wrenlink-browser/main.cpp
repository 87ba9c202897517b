// wrenlink-browser: a desktop application on libWrenlink (kUsage in options.cpp says what it
// does). The window's classes live beside this file; this only reads the command line.
#include <QApplication>
#include <cstdio>
#include <cstring>

#include "main_window.h"
#include "options.h"
#include "screenshot.h"

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
    MainWindow window(parsed.options);
    window.show();
    if (!parsed.options.screenshot.isEmpty())
        saveScreenshotWhenFilled(window, parsed.options.screenshot, parsed.options.after);
    return app.exec();
}
