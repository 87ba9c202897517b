#include "adb/runner/tokeniser.h"

namespace wrenlink::adb {

std::vector<std::string> split_command_line(const std::string &line, const std::string &toolPath) {
    std::string work = line;  // split in place: separating blanks become terminators
    std::vector<std::size_t> starts;
    bool inToken = false;
    unsigned quotes = 0;
    for (std::size_t i = 0; i < work.size(); ++i) {
        char &c = work[i];
        if (c == '"') {
            ++quotes;
            c = ' ';  // ...and then treated as the blank it now is
        } else if (c != ' ') {
            if (!inToken) starts.push_back(i);
            inToken = true;
            continue;
        }
        if (quotes % 2 == 0) {
            c = '\0';
            inToken = false;
        }
    }
    if (starts.empty()) return {toolPath};
    std::vector<std::string> tokens;
    tokens.reserve(starts.size());
    for (const std::size_t start : starts) tokens.emplace_back(work.c_str() + start);
    return tokens;
}

}  // namespace wrenlink::adb
