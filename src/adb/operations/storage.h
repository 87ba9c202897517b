// Where the phone's storage card lies and how much room a path has left.
#pragma once

#include <cstdint>

namespace wrenlink::adb {

// The first of /sdcard, /sdcard0 ... /sdcard4 that exists into `path` (at least 9 bytes), or the
// empty text. 0.
int32_t first_sdcard_path(const char *serial, char *path);
// Free bytes at `path` from the fourth word of `df`: 0, or -2 when df printed fewer words.
int32_t storage_free_space(const char *serial, const char *path, uint64_t *freeBytes);

}  // namespace wrenlink::adb
