// Packages.
#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "adb/operations/packages.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

int32_t AdbInstallPackage(const char *serial, const char *packagePath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(-1, [&] { return adb::install_package(serial, packagePath); });
}

int32_t AdbUninstallPackage(const char *serial, const char *packageName) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(-1, [&] { return adb::uninstall_package(serial, packageName); });
}

int32_t AdbListPackege3(const char *serial, char **text, uint32_t *length) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::list_third_party_packages(serial, text, length); });
}

int32_t AdbListPackegeSys(const char *serial, char **text, uint32_t *length) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::list_system_packages(serial, text, length); });
}

int32_t AdbCheckPackageApkExist(const char *serial, const char *packageName, uint8_t *exists) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::check_package_apk(serial, packageName, exists); });
}

int32_t AdbCheckAppInstalled(const char *serial, const char *packageName, uint8_t *installed) {
    return guarded<int32_t>(0, [&] { return adb::check_app_installed(serial, packageName, installed); });
}

int32_t AdbGetPackageProp(const char *serial, const char *packageName, const char *key, char *value) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::package_prop(serial, packageName, key, value); });
}

}  // extern "C"
