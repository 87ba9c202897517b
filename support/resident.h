// The process's resident set, for the memory figures of the benchmarks and the soak.
#pragma once

#include <unistd.h>

#include <cstdio>

namespace wrenlink::support {

// The resident set in KiB, or -1 where the system does not tell it.
inline long resident_kib() {
    std::FILE *f = std::fopen("/proc/self/statm", "re");
    if (f == nullptr) return -1;
    long size = 0, resident = -1;
    if (std::fscanf(f, "%ld %ld", &size, &resident) != 2) resident = -1;
    std::fclose(f);
    return resident < 0 ? -1 : resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace wrenlink::support
