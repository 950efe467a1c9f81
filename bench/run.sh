#!/usr/bin/env bash
# Builds the benchmarks in Release, in the folder build/bench, and runs them. The benchmarks whose
# names begin with mpi_ run with Open MPI on 2 processes.
#
#   bench/run.sh                        all of them, except large_gather
#   bench/run.sh dense_reorder          one of them
#   bench/run.sh --json out             all, with a JSON file each in the folder `out`
#   bench/run.sh dense_reorder --mib 64 one, with an option of its own (--help lists them)
#   bench/run.sh large_gather           takes 11 GB of memory
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/bench
. "$root/cmake/setup.sh"
need "${build_packages[@]}" libopenmpi-dev openmpi-bin

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPAVEX_BENCH=ON -DPAVEX_MPI=ON \
  -DMPI_CXX_COMPILER=mpicxx.openmpi -DMPIEXEC_EXECUTABLE=/usr/bin/mpiexec.openmpi \
  -DPAVEX_TESTS=OFF -DPAVEX_TOOLS=OFF -DPAVEX_EXAMPLES=OFF >/dev/null

name=
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
  name=$1
  shift
fi
cmake --build "$build" --parallel --target "${name:+bench_}${name:-all}" >&2

export OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1
programs=("$build"/bench/bench_*)
[ -n "$name" ] && programs=("$build/bench/bench_$name")
for program in "${programs[@]}"; do
  case "$program:$name" in
    */bench_large_gather:) continue ;;
    */bench_mpi_*) mpiexec.openmpi -n 2 "$program" "$@" ;;
    *) "$program" "$@" ;;
  esac
  echo
done
