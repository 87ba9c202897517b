#include "adb/operations/phones.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "adb/operations/device_run.h"
#include "adb/text/tool_text.h"
#include "base/malloc_block.h"

namespace wrenlink::adb {

namespace {

constexpr std::size_t kSoftVersionOutputSize = 4096;

// A property read: the line formed from the serial, the failure test of its text, and the first
// line of the value into a 32-byte field. Each of the three reads passes its own format literal.
template <std::size_t N>
int32_t read_property(const Line &line, bool (*failed)(std::string_view), char *field) {
    ToolOutputOf<N> out;
    if (failed(tool_text(line, out))) return 1;
    copy_property_field(field, out.bytes);
    return 0;
}

bool product_read_failed(std::string_view text) noexcept { return says_device_not_found(text); }

int32_t read_soft_version(const char *serial, char *field) {
    return read_property<kSoftVersionOutputSize>(
        tool_line(serial, "shell getprop ro.build.version.release"), soft_version_read_failed, field);
}

int32_t read_manufacturer(const char *serial, char *field) {
    return read_property<kOutputSize>(tool_line(serial, "shell getprop ro.product.manufacturer"),
                                      product_read_failed, field);
}

int32_t read_product_model(const char *serial, char *field) {
    return read_property<kOutputSize>(tool_line(serial, "shell getprop ro.product.model"), product_read_failed,
                                      field);
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

}  // namespace

int32_t devices_list(char *output) {
    if (output == nullptr) return -1;
    ToolOutput out;
    const std::string_view text = tool_text(Line(" devices"), out);
    if (devices_text_reports_failure(text)) return -1;
    const std::string records = devices_list_records(text, static_cast<std::size_t>(kOutputSize) - 1);
    // With no phone nothing is written, not even a terminator.
    if (!records.empty()) std::memcpy(output, records.c_str(), records.size() + 1);
    return 0;
}

int32_t phone_list(PhoneInfo **phones, uint32_t *count) {
    if (phones == nullptr || count == nullptr) return 0;
    // The caller holds no array until it is whole: one that runs out of memory on the way hands
    // over none and frees what it made.
    *phones = nullptr;
    *count = 0;
    ToolOutput out;
    const std::string_view text = tool_text(Line(" devices"), out);
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
}

int32_t refresh_phone(PhoneInfo *phone) {
    if (phone == nullptr) return 0;
    ToolOutput out;
    const std::string_view text = tool_text(Line(" devices"), out);
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
            phone->authorized = 0;
            continue;
        }
        std::puts("检测授权成功");  // "authorised": kept, in its own words, for callers' logs
        phone->authorized = 1;
        read_properties(serial, *phone);
    }
    if (!found) phone->present = 0;
    return 0;
}

// One null pointer is refused like two: with no serial there is no phone to ask, with no field
// nowhere to put the answer.
int32_t soft_version(const char *serial, char *field) {
    return serial != nullptr && field != nullptr ? read_soft_version(serial, field) : -1;
}

int32_t product_model(const char *serial, char *field) {
    return serial != nullptr && field != nullptr ? read_product_model(serial, field) : -1;
}

int32_t manufacturer(const char *serial, char *field) {
    return serial != nullptr && field != nullptr ? read_manufacturer(serial, field) : -1;
}

}  // namespace wrenlink::adb
