// Phones: which are attached, and what they call themselves.
#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "adb/operations/phones.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

int32_t AdbGetDevicesList(char *output) { return guarded<int32_t>(-1, [&] { return adb::devices_list(output); }); }

int32_t AdbGetPhoneList(PhoneInfo **phones, uint32_t *count) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::phone_list(phones, count); });
}

int32_t AdbRereshDevInfo(PhoneInfo *phone) { return guarded<int32_t>(0, [&] { return adb::refresh_phone(phone); }); }

int32_t AdbGetPhoneSoftVersion(const char *serial, char *version) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(-1, [&] { return adb::soft_version(serial, version); });
}

int32_t AdbGetPhoneProductModel(const char *serial, char *model) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(-1, [&] { return adb::product_model(serial, model); });
}

int32_t AdbGetPhoneManufacture(const char *serial, char *manufacturer) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(-1, [&] { return adb::manufacturer(serial, manufacturer); });
}

int32_t AdbGetPhoneName(void) { return 0; }

}  // extern "C"
