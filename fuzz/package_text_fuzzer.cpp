// The package readers over any text. The value behind a key lies inside the text and ends before
// any line end. The one-package test agrees with the expression it stands for,
// ^[^:]*:(\S+)\s*$ in ECMAScript grammar, matched against the whole text (compared on short texts,
// where the standard library's backtracking matcher stays cheap).
//
// Input: one byte n, then a key of n % 16 bytes, then the text.
#include <regex>
#include <string>

#include "adb/text/tool_text.h"
#include "tool_text.h"

using namespace wrenlink::adb;
using namespace wrenlink::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::size_t keySize = data[0] % 16u;
    if (size < 1 + keySize) return 0;
    const std::string_view key(reinterpret_cast<const char *>(data + 1), keySize);
    const std::string_view text = tool_text(data + 1 + keySize, size - 1 - keySize);

    if (const auto value = package_prop_value(text, key)) {
        check(lies_within(*value, text) && value->find_first_of("\r\n") == std::string_view::npos);
        check(text.find(key) != std::string_view::npos);
    }
    const bool one = lists_exactly_one_package(text);
    if (text.size() <= 256) {
        static const std::regex expression("^[^:]*:(\\S+)\\s*$", std::regex::ECMAScript);
        check(one == std::regex_match(text.begin(), text.end(), expression));
    }
    return 0;
}
