#!/usr/bin/env bash
# test-weight.sh: the weight of the tests against the code, in non-blank C/C++ lines that are not
# only a // comment. Tests are everything under tests/ and fuzz/ and any *_test.* file; the code
# is every other C/C++ file that git tracks.
set -euo pipefail
cd "$(dirname "$0")/.."
files() { git ls-files | grep -E '\.(c|cc|cpp|cxx|h|hh|hpp)$'; }
count() { xargs -r cat | grep -c -v -E '^\s*(//.*)?$'; }
tests=$(files | grep -E '^(tests?|fuzz)/|_test\.[a-z]+$' | count)
code=$(files | grep -v -E '^(tests?|fuzz)/|_test\.[a-z]+$' | count)
awk -v t="$tests" -v c="$code" 'BEGIN { printf "tests %d, code %d: %.2f\n", t, c, t / c }'
