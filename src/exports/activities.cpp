// Activities.
#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "adb/operations/activities.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

int32_t AdbGetTopActivity(const char *serial, char *name) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(-1, [&] { return adb::top_activity(serial, name); });
}

int32_t AdbStartActivity(const char *serial, const char *component) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(-1, [&] { return adb::start_activity(serial, component); });
}

int32_t AdbForceStopApp(const char *serial, const char *packageName) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::force_stop_app(serial, packageName); });
}

int32_t AdbStartService(void) { return 0; }
int32_t AdbStopService(void) { return 0; }
int32_t AdbSendBroadcast(void) { return 0; }
int32_t AdbCaptureScreen(void) { return 0; }

}  // extern "C"
