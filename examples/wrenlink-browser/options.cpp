#include "options.h"

#include <arpa/inet.h>

#include <QFileInfo>
#include <QStringList>

const char kUsage[] =
    "usage: wrenlink-browser [--address A] [--port N] [--forward PHONE_PORT] [--scan]\n"
    "                        [--agents DIR] [--screenshot FILE [--after SECONDS]]\n"
    "\n"
    "A phone browser on libWrenlink: the phones that adb sees, the agent's media catalogue with\n"
    "thumbnails, a scan of the phone, and files copied between the phone and this computer. It\n"
    "connects to the agent at start.\n"
    "\n"
    "  --address A        the agent's dotted IPv4 address (default 127.0.0.1)\n"
    "  --port N           the agent's port (default 10243); with --forward, the local end\n"
    "  --forward P        have adb forward --port to port P of the first authorised phone first\n"
    "  --scan             start a scan once connected\n"
    "  --agents DIR       the phone builds that Install agent pushes, DIR/<abi>/wrenlink-agent\n"
    "                     (default: share/wrenlink/phone-agents beside this program's folder)\n"
    "  --screenshot FILE  once the window has filled (phones listed, catalogue read, thumbnails\n"
    "                     drawn), save it as a PNG and exit; QT_QPA_PLATFORM=offscreen needs no\n"
    "                     display\n"
    "  --after SECONDS    with --screenshot: wait this long after the window has filled\n"
    "\n"
    "adb is the library's: Resources/adb beside the folder of this program. Once the window has\n"
    "closed, an agent that does not end a scan gets 3 seconds; then the program ends without it.\n"
    "\n"
    "Exit status: 0, also when a screenshot was saved; 1 when the screenshot's agent cannot be\n"
    "reached or its file cannot be written; 2 for a bad command line.\n";

namespace {

bool portValue(const QString &text, quint16 &port) {
    bool ok = false;
    const uint value = text.toUInt(&ok);
    if (!ok || value == 0 || value > 65535) return false;
    port = static_cast<quint16>(value);
    return true;
}

}  // namespace

ParsedOptions parseOptions(int argc, const char *const *argv) {
    ParsedOptions parsed;
    BrowserOptions &o = parsed.options;
    auto wrong = [&parsed](const QString &why) {
        parsed.action = ParsedOptions::Action::Error;
        parsed.error = why;
        return parsed;
    };
    bool afterGiven = false;
    for (int i = 1; i < argc; ++i) {
        const QString option = QString::fromLocal8Bit(argv[i]);
        if (option == "--help" || option == "-h") {
            parsed.action = ParsedOptions::Action::Help;
            return parsed;
        }
        if (option == "--scan") {
            o.scan = true;
            continue;
        }
        if (!QStringList{"--address", "--port", "--forward", "--agents", "--screenshot", "--after"}.contains(option))
            return wrong((option.startsWith('-') ? "unknown option: " : "unexpected argument: ") + option);
        if (i + 1 == argc) return wrong(option + " needs a value");
        const QString value = QString::fromLocal8Bit(argv[++i]);
        if (option == "--address") {
            in_addr address{};
            if (::inet_pton(AF_INET, argv[i], &address) != 1)
                return wrong("--address takes a dotted IPv4 address, not '" + value + "'");
            o.address = value;
        } else if (option == "--port" || option == "--forward") {
            if (!portValue(value, option == "--port" ? o.port : o.forward))
                return wrong(option + " takes a number from 1 to 65535, not '" + value + "'");
        } else if (option == "--agents") {
            if (!QFileInfo(value).isDir()) return wrong("--agents takes a folder of phone builds, not '" + value + "'");
            o.agentsDir = value;
        } else if (option == "--screenshot") {
            o.screenshot = value;
        } else {
            bool ok = false;
            o.after = value.toDouble(&ok);
            if (!ok || o.after < 0 || o.after > 3600)
                return wrong("--after takes seconds from 0 to 3600, not '" + value + "'");
            afterGiven = true;
        }
    }
    if (afterGiven && o.screenshot.isEmpty()) return wrong("--after goes with --screenshot");
    return parsed;
}
