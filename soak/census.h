// What the soak's process holds, counted at the end of the warm-up and again after the settle time
// at the end: descriptors, threads, child processes (zombies among them) and the resident set.
// Both counts are taken with the same threads running and no connection open, so that any
// difference is left over from the run.
#pragma once

#include <string>

namespace wrenlink::soak {

struct Census {
    long descriptors = 0;
    long threads = 0;
    long children = 0;  // zombies included
    long zombies = 0;
    long residentKib = 0;
    long heapKib = -1;  // what the process's allocations hold, where the C library tells it
};

Census take_census();

// Descriptors, threads and children more at the end than after the warm-up, plus every zombie at
// the end: what the run leaked.
long leaked(const Census &before, const Census &after);

}  // namespace wrenlink::soak
