// Which phones are attached, in what state, and what they call themselves.
#pragma once

#include <cstdint>

#include "Wrenlink/Wrenlink.h"

namespace wrenlink::adb {

int32_t devices_list(char *output);
int32_t phone_list(PhoneInfo **phones, uint32_t *count);
int32_t refresh_phone(PhoneInfo *phone);
// The property reads: 0 done; 1 the phone was not found (field untouched); -1 a null argument.
int32_t soft_version(const char *serial, char *field);
int32_t product_model(const char *serial, char *field);
int32_t manufacturer(const char *serial, char *field);

}  // namespace wrenlink::adb
