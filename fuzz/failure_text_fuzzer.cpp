// The failure-text classification over any text, for every operation's set of answers: the answer
// is always one of the set; a text that begins with the device word gives the device answer; a
// failure text with "Permission denied" never gives the plain failure answer where the two differ.
#include "adb/text/tool_text.h"
#include "tool_text.h"

using namespace wrenlink::adb;
using namespace wrenlink::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text = tool_text(data, size);
    const bool permission = text.find("Permission denied") != std::string_view::npos;
    for (const FailureVerdicts &v : {kRemovalVerdicts, kCopyVerdicts, kPushVerdicts, kPackageVerdicts}) {
        const int32_t answer = classify_failure_text(text, v);
        check(answer == v.deviceNotFound || answer == v.failure || answer == v.permission || answer == v.clean);
        if (says_device_not_found(text)) check(answer == v.deviceNotFound);
        if (permission && !says_device_not_found(text) && v.failure != v.permission) check(answer != v.failure);
    }
    return 0;
}
