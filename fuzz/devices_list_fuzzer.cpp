// The readers of the tool's devices list over any text: every serial they pick out lies inside the
// text and within one line, and the short list stays within the caller's capacity, whole records
// only.
#include "adb/text/tool_text.h"
#include "tool_text.h"

using namespace wrenlink::adb;
using namespace wrenlink::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text = tool_text(data, size);
    (void)devices_text_reports_failure(text);
    (void)is_nonempty_devices_list(text);
    for (const auto &phones : {listed_phones(text), refresh_candidates(text)}) {
        for (const PhoneLine &phone : phones) {
            check(lies_within(phone.serial, text) && phone.serial.find_first_of("\t\n") == std::string_view::npos);
        }
    }
    // A capacity the first byte picks, so that records are cut at every length.
    const std::size_t capacity = size == 0 ? 0 : data[0] * 8u;
    const std::string records = devices_list_records(text, capacity);
    check(records.size() <= capacity && (records.empty() || records.back() == ';'));
    return 0;
}
