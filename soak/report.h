// The soak's report: a table per fault kind and per call, the data compared apart, the findings,
// the census at either end, and as its last line
//   soak: C calls, F faults, K crashes, H hangs, X corrupt, U undocumented, L leaked
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "soak/census.h"
#include "soak/ledger.h"

namespace wrenlink::soak {

struct Ending {
    Census before, after;
    long connectionsOpened = 0;
    std::vector<std::string> cleanPassFailures;
    bool cleanPassRan = false;
};

// The last line for these totals.
std::string last_line(const Totals &totals);

void print_report(std::FILE *out, const Ledger &ledger, const Ending &ending);

}  // namespace wrenlink::soak
