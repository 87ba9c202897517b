// The command line.
#pragma once

#include <QString>

extern const char kUsage[];

struct BrowserOptions {
    QString address = "127.0.0.1";
    quint16 port = 10243;
    quint16 forward = 0;  // the agent's port on the phone; 0: connect directly
    bool scan = false;    // start a scan once connected
    QString screenshot;   // save the window here once it has filled, and exit
    double after = 0;     // seconds between the window's filling and the screenshot
    QString agentsDir;    // the phone builds, <dir>/<abi>/wrenlink-agent; empty: the install tree's
};

struct ParsedOptions {
    enum class Action { Run, Help, Error };
    Action action = Action::Run;
    BrowserOptions options;
    QString error;  // names the argument that is wrong
};

ParsedOptions parseOptions(int argc, const char *const *argv);
