// The walk for the focused activity over any text: a name it takes lies inside the text and holds
// no blank and no "}", so that it always fits the caller's 2048-byte buffer with its terminator.
#include "adb/text/tool_text.h"
#include "tool_text.h"

using namespace wrenlink::adb;
using namespace wrenlink::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text = tool_text(data, size);
    const auto name = top_activity_name(text);
    if (name) {
        check(lies_within(*name, text) && name->find_first_of(" }") == std::string_view::npos);
        check(text.find("ActivityRecord") != std::string_view::npos && name->size() < 2048);
    }
    return 0;
}
