// The process runner: one run of the adb tool with its output collected.
#pragma once

#include <cstdint>
#include <string>

// <folder of the running executable>/../Resources/adb, found anew for every run.
std::string GetAdbPath();

// Runs the tool once under the runner's lock and copies stdout-then-stderr into `output` by the
// copy rule: text shorter than outputSize is copied with its terminator, otherwise exactly
// outputSize - 1 bytes and nothing else. Always 0.
int32_t AdbCommandOC(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit);
