#!/usr/bin/env bash
# Builds laserctl and the laser plug-in when needed (incrementally), then runs laserctl with the arguments given.
#   scripts/laserctl.sh --config examples/default-laser.json emission-on status wait 400 status diode 60 status
# The release preset is used unless LASERCTL_PRESET names another (debug, asan, tsan). A build folder that this
# script configures treats warnings as warnings: running the tool must not depend on the compiler's opinion of the
# code (the tests' builds keep them as errors). Build output goes to standard error, so that laserctl's standard
# output (for example with --json) stays clean for programs.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${LASERCTL_PRESET:-release}

{
  scripts/install-deps.sh
  if [[ ! -f build/$preset/build.ninja ]]; then
    cmake --preset "$preset" -DDEVLASER_WERROR=OFF
  fi
  cmake --build --preset "$preset" --target laserctl
} >&2

exec "build/$preset/bin/laserctl" "$@"
