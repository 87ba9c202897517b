// Which activity the phone shows, starting one, and stopping an application.

#include "Wrenlink/AdbText.h"
#include "Wrenlink/ComLog.h"
#include "Wrenlink/boundary.h"
#include "Wrenlink/device_run.h"

using namespace wrenlink;

namespace {
constexpr int32_t kNotDone = -1;
}  // namespace

extern "C" {

int32_t AdbGetTopActivity(const char *serial, char *name) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || name == nullptr) return kNotDone;
    return guarded<int32_t>(kNotDone, [&] {
        ToolOutput out;
        // The grep runs on the phone.
        const auto text = run_shell(serial, Line("dumpsys activity activities | grep mFocusedActivity"), out.bytes);
        const auto found = top_activity_name(text);
        if (!found) return kNotDone;
        write_text(name, *found);
        return 0;
    });
}

// Only "Starting: Intent" counts; whatever the phone prints behind it changes nothing.
int32_t AdbStartActivity(const char *serial, const char *component) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || component == nullptr) return kNotDone;
    return guarded<int32_t>(kNotDone, [&] {
        const Line shellText = format_command("am start -n %s", component);
        if (!shellText) return kNotDone;
        ComLog::Log("%s CommandLine %s...\r\n", "AdbStartActivity", shellText->c_str());
        ToolOutput out;
        const auto text = run_shell(serial, shellText, out.bytes);
        return text.find("Starting: Intent") != text.npos ? 0 : kNotDone;
    });
}

int32_t AdbForceStopApp(const char *serial, const char *packageName) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || packageName == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        ToolOutput out;
        run_shell(serial, format_command("am force-stop  %s", packageName), out.bytes);
        return 0;
    });
}

int32_t AdbStartService(void) { return 0; }
int32_t AdbStopService(void) { return 0; }
int32_t AdbSendBroadcast(void) { return 0; }
int32_t AdbCaptureScreen(void) { return 0; }

}  // extern "C"
