#!/usr/bin/env bash
# Installs what is missing, configures, builds incrementally and runs every test.
#   scripts/test.sh            the default build: Debug with AddressSanitizer and UndefinedBehaviorSanitizer
#   scripts/test.sh tsan       the same tests under ThreadSanitizer
#   scripts/test.sh debug|release
# Extra arguments after the preset go to ctest (for example -L unit, or -R Fiber).
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-asan}
[[ $# -gt 0 ]] && shift

scripts/install-deps.sh

if [[ ! -f build/$preset/build.ninja ]]; then
  cmake --preset "$preset"
fi
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)" "$@"
