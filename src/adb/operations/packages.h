// Packages on the phone: install and remove (judged by the failure texts), list, and look up.
#pragma once

#include <cstdint>

namespace wrenlink::adb {

// -1 a null argument or a line too long; 0 the phone was not found; 1 done, or a failure text
// without "Permission denied"; 2 a failure text with it.
int32_t install_package(const char *serial, const char *packagePath);
int32_t uninstall_package(const char *serial, const char *packageName);
// The raw list text in a malloc block handed over whole, or none at all.
int32_t list_third_party_packages(const char *serial, char **text, uint32_t *length);
int32_t list_system_packages(const char *serial, char **text, uint32_t *length);
int32_t check_package_apk(const char *serial, const char *packageName, uint8_t *exists);
int32_t check_app_installed(const char *serial, const char *packageName, uint8_t *installed);
// 0, or -2 when the key is not in the text.
int32_t package_prop(const char *serial, const char *packageName, const char *key, char *value);

}  // namespace wrenlink::adb
