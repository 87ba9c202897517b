#include "soak/census.h"

#include <dirent.h>
#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/resident.h"

namespace wrenlink::soak {

namespace {

// Entries of a directory of /proc whose names are numbers.
template <class Each>
void for_each_number(const char *directory, Each &&each) {
    DIR *dir = ::opendir(directory);
    if (dir == nullptr) return;
    while (const dirent *entry = ::readdir(dir))
        if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9') each(entry->d_name);
    ::closedir(dir);
}

// A process's parent and state from /proc/PID/stat: "PID (NAME) STATE PPID ...".
bool parent_and_state(const char *pid, long &parent, char &state) {
    const std::string path = std::string("/proc/") + pid + "/stat";
    std::FILE *f = std::fopen(path.c_str(), "re");
    if (f == nullptr) return false;
    char text[512] = {};
    const std::size_t n = std::fread(text, 1, sizeof text - 1, f);
    std::fclose(f);
    const char *after = nullptr;
    for (std::size_t i = 0; i < n; ++i)
        if (text[i] == ')') after = text + i;
    return after != nullptr && std::sscanf(after, ") %c %ld", &state, &parent) == 2;
}

}  // namespace

Census take_census() {
    Census c;
#if defined(__GLIBC__)
    // Memory that the threads' arenas hold free goes back to the system first: the resident set
    // then follows what is in use rather than the highest mark of each arena.
    ::malloc_trim(0);
#endif
    for_each_number("/proc/self/fd", [&](const char *) { ++c.descriptors; });
    --c.descriptors;  // the directory stream's own
    for_each_number("/proc/self/task", [&](const char *) { ++c.threads; });
    const long self = static_cast<long>(::getpid());
    for_each_number("/proc", [&](const char *pid) {
        long parent = 0;
        char state = 0;
        if (!parent_and_state(pid, parent, state) || parent != self) return;
        ++c.children;
        if (state == 'Z') ++c.zombies;
    });
    c.residentKib = support::resident_kib();
#if defined(__GLIBC__)
    const struct mallinfo2 heap = ::mallinfo2();
    c.heapKib = static_cast<long>((heap.uordblks + heap.hblkhd) / 1024);
#endif
    return c;
}

long leaked(const Census &before, const Census &after) {
    return std::max(0L, after.descriptors - before.descriptors) + std::max(0L, after.threads - before.threads) +
           std::max(0L, after.children - before.children) + after.zombies;
}

}  // namespace wrenlink::soak
