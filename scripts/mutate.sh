#!/usr/bin/env bash
# mutate.sh [--where] [ID...]: the mutation check. Each mutant of scripts/mutants.txt changes one line of the
# library; it is applied alone, the dev preset is rebuilt and its ctest run (stopping at the first
# failure), and the source is put back. A mutant is killed when a test fails, survives when all
# pass, and is stillborn when it does not build. Name IDs to run only those; --where only shows
# the file each mutant lands in (after code moves, to find texts that need updating).
#
# A mutant is found by its text, not by its file, so that the list outlives moved files: the text
# must stand exactly once in src/. Results go to build/mutate/results.tsv as well as the terminal.
# Run it on a clean tree with the dev preset configured (bash scripts/test.sh does that); as root
# it runs in a network namespace of its own, so that the tests' fixed ports never meet another run.
set -uo pipefail
cd "$(dirname "$0")/.."

if [[ $(id -u) -eq 0 && -z ${WRENLINK_MUTATE_INNER:-} ]] && unshare --net true 2>/dev/null; then
  exec unshare --net --fork env WRENLINK_MUTATE_INNER=1 bash -c 'ip link set lo up && exec bash "$0" "$@"' "$0" "$@"
fi

list=scripts/mutants.txt
out=build/mutate
mkdir -p "$out"
results=$out/results.tsv
: >"$results"

# The one file of src/ that holds `from` exactly once; empty when there is none or more.
locate() {
  local from=$1 file count total=0 found=""
  while IFS= read -r file; do
    count=$(FROM="$from" perl -0777 -ne '$n = () = /\Q$ENV{FROM}\E/g; print $n' "$file")
    if ((count > 0)); then
      total=$((total + count))
      found=$file
    fi
  done < <(grep -rlF -- "$from" src)
  ((total == 1)) && printf '%s\n' "$found"
}

# The original goes back with a new time stamp: with its old one, the build would keep the
# mutant's objects and every later mutant would run on top of this one.
restore() {
  [[ -n ${saved:-} && -f $saved ]] && cp "$saved" "$target" && rm -f "$saved"
  saved=""
}
trap restore EXIT
trap 'restore; exit 130' INT TERM

if [[ ${1:-} == --where ]]; then
  shift
  while IFS=$'\t' read -r id what from to; do
    [[ -z $id || $id == \#* ]] && continue
    if (($# > 0)) && [[ " $* " != *" $id "* ]]; then continue; fi
    printf '%-4s %s\n' "$id" "$(locate "$from" || true)"
  done <"$list"
  exit 0
fi

cmake --build --preset dev >"$out/build.log" 2>&1 || { echo "the unmutated tree does not build: $out/build.log" >&2; exit 1; }

killed=0 survived=0 stillborn=0 missing=0
while IFS=$'\t' read -r id what from to; do
  [[ -z $id || $id == \#* ]] && continue
  if (($# > 0)) && [[ " $* " != *" $id "* ]]; then continue; fi
  target=$(locate "$from")
  if [[ -z $target ]]; then
    printf '%-4s %-10s %s\n' "$id" "not found" "$what"
    printf '%s\tnot-found\t-\t%s\n' "$id" "$what" >>"$results"
    missing=$((missing + 1))
    continue
  fi
  saved=$out/saved.$$
  cp -p "$target" "$saved"
  FROM="$from" TO="$to" perl -0777 -pi -e 's/\Q$ENV{FROM}\E/$ENV{TO}/' "$target"
  start=$SECONDS
  if ! cmake --build --preset dev >"$out/$id.build.log" 2>&1; then
    verdict=stillborn
    stillborn=$((stillborn + 1))
  elif ctest --preset dev --stop-on-failure >"$out/$id.test.log" 2>&1; then
    verdict=SURVIVED
    survived=$((survived + 1))
  else
    verdict=killed
    killed=$((killed + 1))
    rm -f "$out/$id.build.log"
  fi
  restore
  printf '%-4s %-10s %4ds  %-34s %s\n' "$id" "$verdict" $((SECONDS - start)) "$target" "$what"
  printf '%s\t%s\t%s\t%s\n' "$id" "$verdict" "$target" "$what" >>"$results"
done <"$list"

cmake --build --preset dev >"$out/build.log" 2>&1
echo "killed $killed, survived $survived, stillborn $stillborn, not found $missing"
((survived == 0 && missing == 0))
