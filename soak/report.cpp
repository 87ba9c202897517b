#include "soak/report.h"

#include <algorithm>
#include <map>

namespace wrenlink::soak {

namespace {

// "NAME count, NAME count", most frequent first.
std::string by_value(const std::map<std::string, long> &counts) {
    std::vector<std::pair<long, std::string>> sorted;
    for (const auto &[name, count] : counts) sorted.emplace_back(-count, name);
    std::sort(sorted.begin(), sorted.end());
    std::string text;
    for (const auto &[count, name] : sorted) text += (text.empty() ? "" : ", ") + name + " " + std::to_string(-count);
    return text;
}

std::string outcomes(const ResultCounts &r) {
    std::map<std::string, long> all = r.failed;
    if (r.ok > 0) all["ok"] = r.ok;
    for (const auto &[name, count] : r.undocumented) all["UNDOCUMENTED " + name] = count;
    return by_value(all);
}

void fault_table(std::FILE *out, const Ledger &ledger) {
    std::fprintf(out, "\n%-20s %9s %10s  %s\n", "fault", "injected", "calls hit", "results of the calls it hit");
    const std::vector<FaultTally> faults = ledger.faults();
    for (int k = 0; k < kFaultKinds; ++k) {
        const FaultTally &f = faults[static_cast<std::size_t>(k)];
        std::fprintf(out, "%-20s %9ld %10ld  %s\n", fault_name(static_cast<FaultKind>(k)), f.injected, f.callsHit,
                     outcomes(f.results).c_str());
    }
}

void call_table(std::FILE *out, const Ledger &ledger) {
    std::fprintf(out, "\n%-24s %8s %8s %6s %9s  %s\n", "call", "made", "ok", "cut", "longest s", "failed, by value");
    for (const auto &[call, r] : ledger.calls()) {
        std::string failed = by_value(r.failed);
        if (!r.undocumented.empty()) failed += (failed.empty() ? "" : "; ") + ("UNDOCUMENTED " + by_value(r.undocumented));
        std::fprintf(out, "%-24s %8ld %8ld %6ld %9.1f  %s\n", call.c_str(), r.made, r.ok, r.cut, r.longestSeconds,
                     failed.c_str());
    }
}

void apart_table(std::FILE *out, const Ledger &ledger) {
    std::fprintf(out, "\ndata compared apart: results that judge the tool's text or say only that a run was made\n");
    std::fprintf(out, "%-32s %8s %8s %22s\n", "call and result", "intact", "differs", "differs, no fault near");
    for (const auto &[what, a] : ledger.apart())
        std::fprintf(out, "%-32s %8ld %8ld %22ld\n", what.c_str(), a.intact, a.differs, a.differsWithoutFault);
}

void census_table(std::FILE *out, const Ending &e) {
    std::fprintf(out, "\n%-24s %14s %10s\n", "held by the process", "after warm-up", "at the end");
    const struct {
        const char *name;
        long before, after;
    } rows[] = {{"descriptors", e.before.descriptors, e.after.descriptors},
                {"threads", e.before.threads, e.after.threads},
                {"child processes", e.before.children, e.after.children},
                {"zombies", e.before.zombies, e.after.zombies},
                {"resident KiB", e.before.residentKib, e.after.residentKib},
                {"heap in use KiB", e.before.heapKib, e.after.heapKib}};
    for (const auto &row : rows) std::fprintf(out, "%-24s %14ld %10ld\n", row.name, row.before, row.after);
    std::fprintf(out, "resident growth: %ld KiB; connections opened during the run: %ld\n",
                 e.after.residentKib - e.before.residentKib, e.connectionsOpened);
}

}  // namespace

std::string last_line(const Totals &t) {
    return "soak: " + std::to_string(t.calls) + " calls, " + std::to_string(t.faults) + " faults, " +
           std::to_string(t.crashes) + " crashes, " + std::to_string(t.hangs) + " hangs, " + std::to_string(t.corrupt) +
           " corrupt, " + std::to_string(t.undocumented) + " undocumented, " + std::to_string(t.leaked) + " leaked";
}

void print_report(std::FILE *out, const Ledger &ledger, const Ending &ending) {
    fault_table(out, ledger);
    call_table(out, ledger);
    apart_table(out, ledger);
    census_table(out, ending);
    const std::vector<std::string> findings = ledger.findings();
    if (!findings.empty()) std::fprintf(out, "\nfindings (the first %zu):\n", findings.size());
    for (const std::string &f : findings) std::fprintf(out, "  %s\n", f.c_str());
    if (ending.cleanPassRan && ending.cleanPassFailures.empty()) std::fprintf(out, "\nclean pass at the end: every task on every phone went well\n");
    if (!ending.cleanPassRan) std::fprintf(out, "\nclean pass at the end: not run\n");
    for (const std::string &f : ending.cleanPassFailures) std::fprintf(out, "clean pass at the end: %s failed\n", f.c_str());
    std::fprintf(out, "%s\n", last_line(ledger.totals()).c_str());
    std::fflush(out);
}

}  // namespace wrenlink::soak
