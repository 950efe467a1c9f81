#!/usr/bin/env bash
# Builds the benchmarks in Release, in the folder build-bench, and runs them.
#
#   bench/run.sh                        all of them
#   bench/run.sh dense_reorder          one of them
#   bench/run.sh --json out             all, with a JSON file each in the folder `out`
#   bench/run.sh dense_reorder --mib 64 one, with an option of its own (--help lists them)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build-bench

generator=()
command -v ninja >/dev/null && [ ! -e "$build/CMakeCache.txt" ] && generator=(-G Ninja)
cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release -DPAVEX_BENCH=ON \
  -DPAVEX_TESTS=OFF -DPAVEX_TOOLS=OFF -DPAVEX_EXAMPLES=OFF >/dev/null

name=
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
  name=$1
  shift
fi
cmake --build "$build" --parallel --target "${name:+bench_}${name:-all}" >&2

programs=("$build"/bench/bench_*)
[ -n "$name" ] && programs=("$build/bench/bench_$name")
for program in "${programs[@]}"; do
  "$program" "$@"
  echo
done
