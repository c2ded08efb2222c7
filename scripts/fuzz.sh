#!/usr/bin/env bash
# Runs the libFuzzer targets (fuzz/*.cpp) for a while each.
#   scripts/fuzz.sh                 every target for 60 seconds
#   scripts/fuzz.sh format 600      one target for 10 minutes
#   scripts/fuzz.sh all 300         every target for 5 minutes
#   scripts/fuzz.sh all 600 10000000
#                                   every target for 10 minutes or 10 million executions, whichever comes first
# Targets run one after the other under `nice -n 10`, so that builds on the same machine keep their share.
# Builds the `fuzz` preset (clang, AddressSanitizer, UndefinedBehaviorSanitizer) first. Each target starts from its
# seed corpus fuzz/corpus/<target>/ (read only) and keeps what it finds in build/fuzz/corpus/<target>/ (not
# committed). A crash leaves its input in build/fuzz/findings/<target>/; fix it and copy the input into the seed
# corpus, where the normal test suite replays it from then on.
set -euo pipefail
cd "$(dirname "$0")/.."

target=${1:-all}
seconds=${2:-60}
runs=${3:--1}  # -1: no limit on executions

# clang 14 on Debian ships libFuzzer's runtime (libclang_rt.fuzzer) in its own package.
if ! command -v clang++ >/dev/null || ! echo 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }' |
    clang++ -x c++ -fsanitize=fuzzer -o /dev/null - 2>/dev/null; then
  sudo=""
  [[ $(id -u) -ne 0 ]] && sudo=sudo
  $sudo apt-get install -y clang libclang-rt-dev
fi
scripts/install-deps.sh

if [[ ! -f build/fuzz/build.ninja ]]; then
  CC=clang CXX=clang++ cmake --preset fuzz
fi
cmake --build --preset fuzz

if [[ $target == all ]]; then
  targets=$(cd fuzz && ls -- *.dict | sed 's/\.dict$//')
else
  targets=$target
fi

status=0
for t in $targets; do
  exe=build/fuzz/fuzz/fuzz_$t
  [[ -x $exe ]] || { echo "no fuzz target '$t' (fuzz/$t.cpp)" >&2; exit 2; }
  mkdir -p "build/fuzz/corpus/$t" "build/fuzz/findings/$t"
  echo "== $t for ${seconds}s$([[ $runs -ge 0 ]] && echo " or $runs executions")"
  # The scratch corpus comes first: libFuzzer writes new inputs into the first folder only.
  rc=0
  nice -n 10 "$exe" -max_total_time="$seconds" -runs="$runs" -dict="fuzz/$t.dict" \
    -artifact_prefix="build/fuzz/findings/$t/" -print_final_stats=1 "build/fuzz/corpus/$t" "fuzz/corpus/$t" \
    >"build/fuzz/$t.log" 2>&1 || rc=$?
  grep -E '^(#[0-9]+ +DONE|Done [0-9]+ runs|==[0-9]+==|SUMMARY|artifact_prefix)' "build/fuzz/$t.log" || true
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "build/fuzz/$t.log")
  if [[ $rc -eq 0 ]]; then
    echo "-- $t: ${execs:-?} executions, no finding"
  else
    echo "!! $t found a fault after ${execs:-?} executions: see build/fuzz/$t.log" >&2
    status=1
  fi
done
exit $status
