#!/usr/bin/env bash
# Installs what is missing, configures, builds incrementally and runs every test.
#   scripts/test.sh            what CI runs: the whole suite under AddressSanitizer with UndefinedBehaviorSanitizer,
#                              then again under ThreadSanitizer, each in its own build folder. The soak (label
#                              slow) runs once, in the first pass, for DEVLASER_SOAK_SECONDS per laser (120 here)
#   scripts/test.sh asan       one build only, for a quick local run (also tsan, debug, release)
# Extra arguments after a preset go to ctest (for example -L unit, or -R Fiber).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

run_preset() {
  local preset=$1
  shift
  if [[ ! -f build/$preset/build.ninja ]]; then
    cmake --preset "$preset"
  fi
  cmake --build --preset "$preset"
  ctest --preset "$preset" -j "$(nproc)" "$@"
}

if [[ $# -eq 0 ]]; then
  run_preset asan -LE slow
  # The soak lasers mostly wait for their polls: they run side by side, beside nothing else.
  DEVLASER_SOAK_SECONDS=${DEVLASER_SOAK_SECONDS:-120} ctest --preset asan -L slow -j 4
  run_preset tsan -LE slow
else
  preset=$1
  shift
  run_preset "$preset" "$@"
fi
