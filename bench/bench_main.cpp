// wrenlink_bench: every benchmark of bench/, with the table of library/baseline ratios at the end.
#include "ratio_report.h"

int main(int argc, char **argv) { return wrenlink::bench::run_with_table<wrenlink::bench::RatioReporter>(argc, argv); }
