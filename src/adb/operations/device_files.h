// Files and directories on the phone: rename, remove and create through the root shell, and
// copies between host and phone. The outcome is read from the text that came back: -1 a null
// argument or a line too long (nothing run); 0 clean, or the phone was not found; 1 a failure
// text; 2 a failure text with "Permission denied" (make directory, push and pull only).
#pragma once

#include <cstdint>

namespace wrenlink::adb {

// The root-shell operations go to the phone that the tool picks by itself: `serial` is only
// checked.
int32_t rename_file(const char *serial, const char *oldPath, const char *newPath);
int32_t remove_file(const char *serial, const char *path);
int32_t remove_directory(const char *serial, const char *path);
int32_t make_directory(const char *serial, const char *path);
int32_t push_file(const char *serial, const char *localPath, const char *phonePath);
// Through a temporary file on the phone; the removal of that copy is what is judged.
int32_t pull_file(const char *serial, const char *phonePath, const char *localPath);
// Direct transfers that judge nothing: -1 when nothing was run, else 0.
int32_t push_file_unjudged(const char *serial, const char *localPath, const char *phonePath);
int32_t pull_file_unjudged(const char *serial, const char *phonePath, const char *localPath);

}  // namespace wrenlink::adb

// The microseconds within the current second (0 to 999999), not a count since any start: the name
// of a pull's temporary file.
uint32_t GetTickCount();
