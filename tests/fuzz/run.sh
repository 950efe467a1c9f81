#!/usr/bin/env bash
# Fuzzes for longer than the tests do.
#
#   tests/fuzz/run.sh [TARGET] [SECONDS]     default: every target in turn, 600 seconds each
#
# Builds the preset fuzz. Keeps its findings in build/fuzz-corpus/TARGET, so that the next run goes
# on from there. An input that breaks the target is written next to that folder as
# TARGET-crash-... (leak-, oom-, timeout-). Fix the cause, and add the input to
# tests/fuzz/corpus/TARGET under a name that says what it showed; every tree replays it there.
#
# To add the smallest inputs that reach new code to a folder of the corpus:
#   build/fuzz/tests/fuzz/TARGET_fuzz -merge=1 tests/fuzz/corpus/TARGET build/fuzz-corpus/TARGET
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/setup.sh
need "${build_packages[@]}" libgtest-dev libgmock-dev clang libclang-rt-dev lld

targets=(${1:-assemblies gathers matrix_market options records})
seconds=${2:-600}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

for target in "${targets[@]}"; do
  found=build/fuzz-corpus/$target
  mkdir -p "$found"
  echo "== $target, $seconds seconds; its findings are in $found"
  nice build/fuzz/tests/fuzz/"${target}"_fuzz -max_total_time="$seconds" -max_len=4096 \
    -rss_limit_mb=1024 -malloc_limit_mb=256 -timeout=120 -print_final_stats=1 \
    -artifact_prefix="$found-" "$found" tests/fuzz/corpus/"$target"
done
