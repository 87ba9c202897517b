#include "support/scratch.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

namespace wrenlink::support {

namespace fs = std::filesystem;

std::string make_scratch_directory(const char *baseVariable, const char *prefix) {
    std::error_code ec;
    const char *given = std::getenv(baseVariable);
    const fs::path base = given != nullptr                     ? fs::path(given)
                          : fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm")
                                                               : fs::temp_directory_path(ec);
    std::string pattern = (base / (std::string(prefix) + "-XXXXXX")).string();
    return ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
}

bool write_pattern_file(const std::string &path, std::size_t size) {
    std::error_code ec;
    fs::create_directories(fs::path(path).parent_path(), ec);
    std::vector<char> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = pattern_byte(i);
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(size));
    return static_cast<bool>(out);
}

}  // namespace wrenlink::support
