// The runner's tokeniser over any command line (a C string: the input up to its first NUL). Every
// token is non-empty and holds no quote; a line without quotes splits at its blanks alone; a line
// without any token gives the tool's path as the only argument.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "adb/runner/tokeniser.h"
#include "adb/text/string_split.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string line(reinterpret_cast<const char *>(data), size);
    line.resize(line.find('\0') == std::string::npos ? line.size() : line.find('\0'));
    const std::string tool = "/app/Resources/adb";
    const std::vector<std::string> args = wrenlink::adb::split_command_line(line, tool);
    if (args.empty()) std::abort();
    if (line.find_first_not_of(" \"") == std::string::npos) {
        if (args != std::vector<std::string>{tool}) std::abort();
        return 0;
    }
    std::size_t bytes = 0;
    for (const auto &arg : args) {
        if (arg.empty() || arg.find('"') != std::string::npos) std::abort();
        bytes += arg.size();
    }
    if (bytes > line.size()) std::abort();
    if (line.find('"') == std::string::npos) {
        std::vector<std::string> words;
        StringSplit(words, line, " ");
        if (words != args) std::abort();
    }
    return 0;
}
