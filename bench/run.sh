#!/usr/bin/env bash
# Builds the benchmarks in Release and runs them. Those whose names begin with mpi_ run with Open
# MPI and then with MPICH, on 2 processes; mpi_crowded on 4 and on 8. Open MPI runs mpi_gather
# once more without its single copies by the kernel, as in containers that forbid them.
#
#   bench/run.sh                        all of them, except large_gather
#   bench/run.sh dense_reorder          one of them
#   bench/run.sh --json out             all, with a JSON file each in the folder `out`
#   bench/run.sh dense_reorder --mib 64 one, with an option of its own (--help lists them)
#   bench/run.sh large_gather           takes 11 GB of memory
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/cmake/setup.sh"
need "${build_packages[@]}" libopenmpi-dev openmpi-bin libmpich-dev mpich

name=
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
  name=$1
  shift
fi

# build FOLDER MPI TARGET...
build() {
  cmake -S "$root" -B "$root/build/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPAVEX_BENCH=ON \
    -DPAVEX_MPI=ON -DMPI_CXX_COMPILER="mpicxx.$2" -DMPIEXEC_EXECUTABLE="/usr/bin/mpiexec.$2" \
    -DPAVEX_TESTS=OFF -DPAVEX_TOOLS=OFF -DPAVEX_EXAMPLES=OFF >/dev/null
  cmake --build "$root/build/$1" --parallel --target "${@:3}" >&2
}

# launch PROGRAM OPTION...: with the launcher `launcher`.
launch() {
  local processes counts=(2)
  [[ $1 != */bench_mpi_crowded ]] || counts=(4 8)
  for processes in "${counts[@]}"; do
    OMPI_MCA_rmaps_base_oversubscribe=$((processes > 2)) "$launcher" -n "$processes" "$@"
    echo
  done
}

build bench openmpi "${name:+bench_}${name:-all}"
programs=("$root"/build/bench/bench/bench_*)
[ -z "$name" ] || programs=("$root/build/bench/bench/bench_$name")
over_mpi=()
for program in "${programs[@]}"; do
  [[ $program != */bench_mpi_* ]] || over_mpi+=("$(basename "$program")")
done
[ ${#over_mpi[@]} = 0 ] || build bench_mpich mpich "${over_mpi[@]}"

export OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1
launcher=mpiexec.openmpi
for program in "${programs[@]}"; do
  case "$program:$name" in
    */bench_large_gather:) ;;
    */bench_mpi_*)
      launch "$program" "$@"
      [[ $program != */bench_mpi_gather ]] ||
        OMPI_MCA_btl_vader_single_copy_mechanism=none launch "$program" "$@"
      ;;
    *)
      "$program" "$@"
      echo
      ;;
  esac
done
launcher=mpiexec.mpich
for program in "${over_mpi[@]}"; do
  launch "$root/build/bench_mpich/bench/$program" "$@"
done
