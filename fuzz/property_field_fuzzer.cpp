// A property read's copy into its 32-byte field, from a zeroed 2048-byte output buffer holding any
// text: it never leaves the field (a heap block of exactly 32 bytes), and the field reads as the
// text's first line, cut at 32 bytes.
#include <memory>

#include "adb/text/tool_text.h"
#include "tool_text.h"

using namespace wrenlink::adb;
using namespace wrenlink::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text = tool_text(data, size);
    (void)says_device_not_found(text);
    (void)soft_version_read_failed(text);
    auto output = std::make_unique<char[]>(2048);  // zeroed
    std::memcpy(output.get(), text.data(), text.size());
    auto field = std::make_unique<char[]>(kPropertyFieldSize);
    std::memset(field.get(), 'x', kPropertyFieldSize);
    copy_property_field(field.get(), output.get());
    const std::string_view value(field.get(), strnlen(field.get(), kPropertyFieldSize));
    const std::string_view firstLine = text.substr(0, text.find_first_of("\r\n")).substr(0, kPropertyFieldSize);
    check(value == firstLine);
    return 0;
}
