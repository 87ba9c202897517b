#include "adb/text/string_split.h"

int32_t StringSplit(std::vector<std::string> &out, const std::string &text, const std::string &separators) {
    if (text.empty() || separators.empty()) return 0;
    int32_t added = 0;
    auto take = [&](std::string::size_type from, std::string::size_type to) {
        if (to > from) {
            out.emplace_back(text, from, to - from);
            ++added;
        }
    };
    std::string::size_type pos = 0;
    for (;;) {
        const auto hit = text.find_first_of(separators, pos);
        if (hit == std::string::npos) break;
        take(pos, hit);
        pos = hit + 1;
    }
    take(pos, text.size());
    return added;
}
