// Which activity the phone shows, starting one, and stopping an application.
#pragma once

#include <cstdint>

namespace wrenlink::adb {

// 0 with the focused activity's component in `name` (2048 bytes); -1 none found.
int32_t top_activity(const char *serial, char *name);
// 0 when the phone said "Starting: Intent", else -1.
int32_t start_activity(const char *serial, const char *component);
int32_t force_stop_app(const char *serial, const char *packageName);

}  // namespace wrenlink::adb
