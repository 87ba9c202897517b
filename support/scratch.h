// Scratch files of the benchmarks and the soak: a fresh directory, and files of a fixed pattern
// whose bytes can be checked without reading them back from anywhere else.
#pragma once

#include <cstddef>
#include <string>

namespace wrenlink::support {

// A fresh directory named `prefix`-XXXXXX: under the directory that the environment variable
// `baseVariable` names when it is set (the scripts remove that whatever happens to the run), else in
// memory where the system offers it (/dev/shm), else in the temporary directory. Empty on failure;
// the caller removes it.
std::string make_scratch_directory(const char *baseVariable, const char *prefix);

// Byte i of the pattern.
inline char pattern_byte(std::size_t i) { return static_cast<char>((i * 2654435761u) >> 13); }

// A file of `size` pattern bytes, with the folders on its way. False on failure.
bool write_pattern_file(const std::string &path, std::size_t size);

}  // namespace wrenlink::support
