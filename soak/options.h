// The soak's command line.
#pragma once

#include <cstdint>
#include <string>

namespace wrenlink::soak {

struct Options {
    double minutes = 1;   // of faults, after the warm-up
    int phones = 8;
    int threads = 8;
    uint64_t seed = 0;    // drawn when not given
    std::string log;      // where the library's and the tool's own output goes (default: discarded)
};

enum class Parsed { Run, Help, Bad };

extern const char *const kUsage;

// Reads argv into `options`; Bad with what is wrong in `error`.
Parsed parse_options(int argc, char **argv, Options &options, std::string &error);

}  // namespace wrenlink::soak
