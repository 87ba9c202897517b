// Which phones are attached, in what state, and what they call themselves.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Wrenlink/AdbText.h"
#include "Wrenlink/ComLog.h"
#include "Wrenlink/boundary.h"
#include "Wrenlink/device_run.h"
#include "base/malloc_block.h"

using namespace wrenlink;

namespace {

constexpr std::size_t kSoftVersionOutputSize = 4096;

// A property read: the line formed from the serial, the failure test of its text, and the first
// line of the value into a 32-byte field. Each of the three reads passes its own format literal.
template <std::size_t N>
int32_t read_property(const Line &line, bool (*failed)(std::string_view), char *field) {
    ToolOutputOf<N> out;
    if (failed(run_tool(line, out))) return 1;
    copy_property_field(field, out.bytes);
    return 0;
}

bool product_read_failed(std::string_view text) noexcept { return says_device_not_found(text); }

int32_t read_soft_version(const char *serial, char *field) {
    return read_property<kSoftVersionOutputSize>(
        format_command("%s -s %s shell getprop ro.build.version.release", "", serial), soft_version_read_failed,
        field);
}

int32_t read_manufacturer(const char *serial, char *field) {
    return read_property<kOutputSize>(format_command("%s -s %s shell getprop ro.product.manufacturer", "", serial),
                                      product_read_failed, field);
}

int32_t read_product_model(const char *serial, char *field) {
    return read_property<kOutputSize>(format_command("%s -s %s shell getprop ro.product.model", "", serial),
                                      product_read_failed, field);
}

// The three properties of an authorised phone, in this order; a failed read leaves its field as
// it was.
void read_properties(const std::string &serial, PhoneInfo &phone) {
    read_soft_version(serial.c_str(), phone.softVersion);
    read_manufacturer(serial.c_str(), phone.manufacturer);
    read_product_model(serial.c_str(), phone.productModel);
}

// A serial that does not fit the field keeps its first 31 characters and a terminator.
void store_serial(PhoneInfo &phone, std::string_view serial) noexcept {
    const std::size_t n = std::min(serial.size(), sizeof phone.serial - 1);
    std::memcpy(phone.serial, serial.data(), n);
}

// Both pointers null is the documented refusal; one of them null runs nothing either.
template <class Read>
int32_t guarded_property_read(const char *serial, char *field, Read read) {
    if (serial == nullptr || field == nullptr) return -1;
    return guarded<int32_t>(-1, [&] { return read(serial, field); });
}

}  // namespace

extern "C" {

int32_t AdbGetDevicesList(char *output) {
    if (output == nullptr) return -1;
    return guarded<int32_t>(-1, [&] {
        ToolOutput out;
        const std::string_view text = run_tool(Line(" devices"), out);
        if (devices_text_reports_failure(text)) return -1;
        const std::string records = devices_list_records(text, static_cast<std::size_t>(kOutputSize) - 1);
        // With no phone nothing is written, not even a terminator.
        if (!records.empty()) std::memcpy(output, records.c_str(), records.size() + 1);
        return 0;
    });
}

int32_t AdbGetPhoneList(PhoneInfo **phones, uint32_t *count) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (phones == nullptr || count == nullptr) return 0;
    // The caller holds no array until it is whole: one that runs out of memory on the way hands
    // over none and frees what it made.
    *phones = nullptr;
    *count = 0;
    return guarded<int32_t>(0, [&] {
        ToolOutput out;
        const std::string_view text = run_tool(format_command("%s devices", ""), out);
        const std::vector<PhoneLine> listed = listed_phones(text);
        // One record per line feed: every phone line has one before it.
        const auto lineFeeds = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
        MallocBlock<PhoneInfo> array(static_cast<PhoneInfo *>(std::calloc(lineFeeds, sizeof(PhoneInfo))));
        std::size_t filled = 0;
        if (array) {
            for (const PhoneLine &line : listed) {
                PhoneInfo &phone = array.get()[filled++];
                phone.present = 1;
                store_serial(phone, line.serial);
                phone.authorized = line.authorized ? 1 : 0;
                // The key is the serial as the tool printed it, also when the field holds less.
                if (line.authorized) read_properties(std::string(line.serial), phone);
            }
        }
        *count = static_cast<uint32_t>(filled);
        *phones = array.release();
        return 0;
    });
}

int32_t AdbRereshDevInfo(PhoneInfo *phone) {
    if (phone == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        ToolOutput out;
        const std::string_view text = run_tool(Line(" devices"), out);
        if (!is_nonempty_devices_list(text)) {
            phone->present = 0;
            return 1;
        }
        // The caller's field may fill all 32 bytes with no terminator.
        const std::string serial(phone->serial, strnlen(phone->serial, sizeof phone->serial));
        bool found = false;
        for (const PhoneLine &line : refresh_candidates(text)) {
            if (line.serial != serial) continue;
            found = true;
            phone->present = 1;
            if (!line.authorized) {
                ComLog::Log("%s device %s unauthorized...\r\n", "AdbRereshDevInfo", serial.c_str());
                phone->authorized = 0;
                continue;
            }
            std::puts("检测授权成功");
            phone->authorized = 1;
            read_properties(serial, *phone);
        }
        if (!found) phone->present = 0;
        return 0;
    });
}

int32_t AdbGetPhoneSoftVersion(const char *serial, char *version) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded_property_read(serial, version, read_soft_version);
}

int32_t AdbGetPhoneProductModel(const char *serial, char *model) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded_property_read(serial, model, read_product_model);
}

int32_t AdbGetPhoneManufacture(const char *serial, char *manufacturer) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded_property_read(serial, manufacturer, read_manufacturer);
}

int32_t AdbGetPhoneName(void) { return 0; }

}  // extern "C"
