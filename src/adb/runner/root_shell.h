// One line in a root shell on the phone.
#pragma once

#include <cstdint>

namespace wrenlink::adb {

// Runs `<tool> shell` (no -s: the tool picks the phone), then "su" unless its first text shows a
// '#', then `commandLine` as it stands, and kills the shell. Each of the up to three read phases
// writes its text, at most 2047 bytes, and a terminator at the start of `output` (2048 bytes), so
// the last phase's text is what stands there. Root shells are one at a time among themselves.
// Waits for the shell's first text without limit, unless the shell has exited; a pause of half a
// second gives the shell time to answer each line. When no pipe can be had, or the tool can't be
// started, the text is empty; when no process can be made at all, `output` is left as it was.
void run_root_shell(const char *commandLine, char *output);

// Whether the phone's shell runs as root (`shell id`): 0 with *isRoot stored (1 or 0); 1 when the
// tool says the phone is not there; -1 for a null argument or a line that does not fit.
int32_t is_adb_root(const char *serial, uint8_t *isRoot);

}  // namespace wrenlink::adb
