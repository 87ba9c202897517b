#include "adb/operations/activities.h"

#include "adb/operations/device_run.h"
#include "adb/text/tool_text.h"

namespace wrenlink::adb {

namespace {
constexpr int32_t kNotDone = -1;
}  // namespace

int32_t top_activity(const char *serial, char *name) {
    if (serial == nullptr || name == nullptr) return kNotDone;
    ToolOutput out;
    // The grep runs on the phone.
    const auto text = shell_text(serial, Line("dumpsys activity activities | grep mFocusedActivity"), out.bytes);
    const auto found = top_activity_name(text);
    if (!found) return kNotDone;
    write_text(name, *found);
    return 0;
}

// Only "Starting: Intent" counts; whatever the phone prints behind it changes nothing.
int32_t start_activity(const char *serial, const char *component) {
    if (serial == nullptr || component == nullptr) return kNotDone;
    const Line shellText = format_command("am start -n %s", component);
    if (!shellText) return kNotDone;
    ToolOutput out;
    const auto text = shell_text(serial, shellText, out.bytes);
    return text.find("Starting: Intent") != text.npos ? 0 : kNotDone;
}

int32_t force_stop_app(const char *serial, const char *packageName) {
    if (serial == nullptr || packageName == nullptr) return 0;
    ToolOutput out;
    // Kept: the double blank, as the line has always been formed; the tool's arguments and the
    // phone's shell take two blanks as one.
    shell_text(serial, format_command("am force-stop  %s", packageName), out.bytes);
    return 0;
}

}  // namespace wrenlink::adb
