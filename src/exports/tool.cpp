// The adb tool: runs of a command line, the tool's housekeeping and the root shell.
#include <string>

#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "adb/runner/root_shell.h"
#include "adb/runner/server.h"
#include "adb/runner/tool_path.h"
#include "adb/runner/tool_runner.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

int32_t AdbCommand(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit) {
    return guarded<int32_t>(0, [&] {
        adb::run_tool_into(commandLine, output, outputSize, isWaitExit);
        return 0;
    });
}

int32_t AdbShellCommand(const char *serial, const char *shellCommand, char *output, bool isWaitExit) {
    return guarded<int32_t>(-1, [&]() -> int32_t {
        ComLog::Log("%s Enter...\r\n", "AdbShellCommand");
        // Any null pointer runs nothing (the three must all be given), as does a line too long
        // for the command buffer.
        if (serial == nullptr || shellCommand == nullptr || output == nullptr) return -1;
        return adb::run_shell_command(serial, shellCommand, output, isWaitExit) ? 1 : -1;
    });
}

int32_t AdbKillOtherADB(void) { return guarded<int32_t>(0, adb::kill_other_adb); }

int32_t AdbRestartAdb(void) {
    return guarded<int32_t>(0, [] {
        adb::restart_server();
        return 0;
    });
}

int32_t AdbForward(const char *serial, uint32_t localPort, uint32_t phonePort) {
    return guarded<int32_t>(0, [&] {
        ComLog::Log("%s Enter...\r\n", "AdbForward");
        adb::forward(serial, localPort, phonePort);
        return 0;
    });
}

// Thread-local, so that the text stays put for the caller until its thread's next call.
const char *AndGetAdbFullpath(void) {
    thread_local std::string path;
    return guarded<const char *>("", [] {
        path = GetAdbPath();
        return path.c_str();
    });
}

void KillInstallDriver(void) {}

int32_t AdbRootShell(const char * /*unused*/, const char *commandLine, char *output) {
    return guarded<int32_t>(0, [&] {
        // Nothing to send, or nowhere to put the text: nothing is run.
        if (commandLine != nullptr && output != nullptr) adb::run_root_shell(commandLine, output);
        return 0;
    });
}

int32_t AdbIsAdbRoot(const char *serial, uint8_t *isRoot) {
    return guarded<int32_t>(-1, [&] {
        ComLog::Log("%s Enter...\r\n", "AdbIsAdbRoot");
        return adb::is_adb_root(serial, isRoot);
    });
}

}  // extern "C"
