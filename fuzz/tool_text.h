// What the readers of the tool's text are given: the text as it stands in a 2048-byte output
// buffer, up to its first NUL and at most 2047 bytes. The view stays on the fuzzer's own block, so
// that AddressSanitizer sees any read past its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace wrenlink::fuzz {

inline std::string_view tool_text(const uint8_t *data, std::size_t size) {
    const auto *text = reinterpret_cast<const char *>(data);
    return {text, strnlen(text, size < 2047 ? size : 2047)};
}

// Whether `part` is a view into `whole`, as the readers promise for what they pick out.
inline bool lies_within(std::string_view part, std::string_view whole) {
    return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

inline void check(bool ok) {
    if (!ok) std::abort();
}

}  // namespace wrenlink::fuzz
