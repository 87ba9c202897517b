// The size word of `df` in bytes, over any word: a word with a "." reads its number as the C
// library's atof does in the "C" locale (the reading the library promises whatever locale the
// application has set), times the unit, truncated; nothing is undefined on the way (UBSan watches
// the conversions). The fourth-word reader runs over the same bytes as a whole text.
#include <cmath>
#include <cstdlib>
#include <string>

#include "adb/text/tool_text.h"
#include "tool_text.h"

using namespace wrenlink::adb;
using namespace wrenlink::fuzz;

namespace {

uint64_t unit_of(const std::string &word) {
    if (word.find('G') != std::string::npos) return uint64_t{1} << 30;
    if (word.find('M') != std::string::npos) return uint64_t{1} << 20;
    return 1024;
}

// A product as a count: what no 64-bit count holds is 0, negative values wrap.
uint64_t as_count(double product) {
    if (!std::isfinite(product) || product >= 18446744073709551616.0 || product < -9223372036854775808.0) return 0;
    if (product < 0) return static_cast<uint64_t>(static_cast<int64_t>(product));
    return static_cast<uint64_t>(product);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text = tool_text(data, size);
    (void)free_space_from_df(text);
    const std::string word(text);
    const uint64_t bytes = ConvertSpaceStrToValue(word);
    if (word.find('.') != std::string::npos) {
        check(bytes == as_count(std::atof(word.c_str()) * static_cast<double>(unit_of(word))));
    }
    return 0;
}
