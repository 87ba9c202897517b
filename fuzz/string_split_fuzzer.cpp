// StringSplit over any text and any separator set: the pieces never hold a separator, are never
// empty, and with their separators put back they make up the text.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "adb/text/string_split.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    // The first byte says how many of the next bytes are separators.
    const std::size_t count = data[0] % 4;
    if (size < 1 + count) return 0;
    const std::string separators(reinterpret_cast<const char *>(data + 1), count);
    const std::string text(reinterpret_cast<const char *>(data + 1 + count), size - 1 - count);
    std::vector<std::string> out{"kept"};
    const int32_t added = StringSplit(out, text, separators);
    if (added < 0 || out.size() != 1 + static_cast<std::size_t>(added) || out[0] != "kept") std::abort();
    std::string joined;
    for (std::size_t i = 1; i < out.size(); ++i) {
        if (out[i].empty() || out[i].find_first_of(separators) != std::string::npos) std::abort();
        joined += out[i];
    }
    std::string stripped;
    if (!separators.empty())
        for (char c : text)
            if (separators.find(c) == std::string::npos) stripped += c;
    if (joined != stripped) std::abort();
    return 0;
}
