// The library's log sink, a C++ class exported with C++ linkage.
//
// Every log line of the adb half goes to ComLog::Log, which discards it: the library keeps no log
// file and formats nothing. (The few lines it does print on stdout and stderr are listed once, in
// Wrenlink.h under "Output".) The other members exist for applications that link against them;
// they keep no state. GetCuurrentFoler keeps its historical spelling, as Wrenlink.h says.
#ifndef WRENLINK_COMLOG_H
#define WRENLINK_COMLOG_H

#include <cstdint>
#include <string>

#include "Wrenlink/Wrenlink.h"

class WRENLINK_API ComLog {
public:
    ComLog();

    // printf-style; the arguments are not formatted and nothing is written.
    static void Log(const char *format, ...);
    static void Log(int32_t level, const char *format, ...);

    // Always true; changes nothing.
    static bool Initialise(const char *appName);
    // Always the empty string.
    static std::string GetCuurrentFoler();

    static bool hasInit;         // false for the life of the process
    static std::string appName;  // empty for the life of the process
};

#endif  // WRENLINK_COMLOG_H
