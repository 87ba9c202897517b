// The library's string splitter.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Splits `text` at every byte that stands in `separators` (a set, not a sequence), drops empty
// pieces, appends the rest to `out` (which is not cleared) and returns how many it appended.
int32_t StringSplit(std::vector<std::string> &out, const std::string &text, const std::string &separators);
