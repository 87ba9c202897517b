// One run of the tool or of a root shell through the public entry points, as text.
#pragma once

#include <cstring>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "adb/runner/command_line.h"
#include "doubles/census.h"

namespace wrenlink::test {

// One run through the public entry point, with the usual 2048-byte buffer.
inline std::string adb_text(const char *line, bool isWaitExit = true) {
    char output[adb::kOutputSize] = {};
    AdbCommand(line, output, adb::kOutputSize, isWaitExit);
    return output;
}

// One root run through the public entry point, into a 2048-byte buffer that holds no terminator
// beforehand: the text is what the run terminated.
inline std::string root_text(const char *line) {
    char output[adb::kOutputSize];
    std::memset(output, 'x', sizeof output);
    AdbRootShell(nullptr, line, output);
    return std::string(output, strnlen(output, sizeof output));
}

}  // namespace wrenlink::test
