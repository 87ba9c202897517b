#!/usr/bin/env bash
# Plots the time per phone against the number of phones from the JSON of the phone benchmarks
# (scripts/bench.sh writes it to build/release/bench/phones.json):
#   bash scripts/plot-phones.sh [JSON] [PNG]      (default PNG: docs/phones-scaling.png)
set -euo pipefail
cd "$(dirname "$0")/.."
json=${1:-build/release/bench/phones.json}
png=${2:-docs/phones-scaling.png}
bash scripts/ensure-packages.sh gnuplot-nox jq

# One line per phone count: N, then the ms per phone of listing, refreshing, and pushing and
# pulling from one thread and from N threads ("?" where a figure is missing), and the goal of the
# list (1.2 times its figure with the fewest phones).
data=$(mktemp)
trap 'rm -f "$data"' EXIT
jq -r '
  [.benchmarks[] | select(.run_type == "iteration" and (.error_occurred | not))
   | (.name | split("/")) as $n | {family: $n[0], phones: ($n[1] | tonumber), figures: .}]
  | ([.[] | select(.family == "PhoneList")] | min_by(.phones) | .figures.ms_per_phone * 1.2) as $goal
  | group_by(.phones)[]
  | . as $rows
  | def figure($family; $counter): ([$rows[] | select(.family == $family) | .figures[$counter]] | first // "?");
    [$rows[0].phones, figure("PhoneList"; "ms_per_phone"), figure("Refresh"; "ms_per_phone"),
     figure("PushPull"; "one_thread_ms_per_phone"), figure("PushPull"; "n_threads_ms_per_phone"), $goal]
  | @tsv' "$json" > "$data"

gnuplot <<GNUPLOT
set terminal pngcairo size 900,560 font "sans,11"
set output "$png"
set title "Time per phone against the number of phones (real adb, simulated phones)"
set xlabel "phones attached"
set ylabel "ms per phone (log scale)"
set logscale xy 2
set xtics ("1" 1, "4" 4, "16" 16, "32" 32)
set xrange [0.8:40]
set yrange [50:8000]
set ytics ("50" 50, "100" 100, "200" 200, "500" 500, "1000" 1000, "2000" 2000, "5000" 5000)
set grid
set key inside center center box opaque
set datafile missing "?"
plot "$data" using 1:2 with linespoints lw 2 pt 7 title "AdbGetPhoneList", \
     "$data" using 1:3 with linespoints lw 2 pt 5 title "AdbRereshDevInfo of each", \
     "$data" using 1:4 with linespoints lw 2 pt 9 title "push + pull, one thread", \
     "$data" using 1:5 with linespoints lw 2 pt 11 dt 2 title "push + pull, N threads", \
     "$data" using 1:6 with lines lw 1 lc "gray30" dt 3 title "AdbGetPhoneList goal: 1.2 x its time with one phone"
GNUPLOT
echo "wrote $png"
