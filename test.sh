#!/usr/bin/env bash
# Set-up and every test, from a bare Debian 12 machine.
#
#   ./test.sh              what every change must pass; under 20 minutes on 2 cores
#   ./test.sh --all        the slow tests as well; under 80 minutes
#   ./test.sh --coverage   the library's tests alone, and which lines and branches of pavex/ they
#                          reach
#
# PAVEX_MATRIX_DIR names a folder of Matrix Market files that are read and gathered as well.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/setup.sh

all=OFF coverage=OFF
case "${1:-}" in
  --all) all=ON ;;
  --coverage) coverage=ON ;;
  "") ;;
  *) echo "test.sh: unknown option '$1'; see the head of the file" >&2; exit 2 ;;
esac

need "${build_packages[@]}" ccache libgtest-dev libgmock-dev libeigen3-dev libsuitesparse-dev \
  libopenmpi-dev openmpi-bin libpetsc-real-dev libpetsc-complex-dev libhypre-dev libmumps-dev \
  libmpich-dev mpich iproute2 make dpkg-dev file groff-base \
  clang libclang-rt-dev lld clang-tidy clang-format cppcheck valgrind doxygen gcovr

# The slow tests also see PETSc and hypre with 64-bit indices, and hypre with both sizes.
petsc='/usr/lib/petscdir/petsc-real;/usr/lib/petscdir/petsc-complex' hypre=HYPRE
if [ $all = ON ]; then
  need libpetsc64-real-dev libhypre64-dev libhypre64m-dev
  petsc+=';/usr/lib/petscdir/petsc64-real' hypre+=';HYPRE64;HYPRE64m'
fi

jobs=$(nproc)
export CCACHE_BASEDIR=$PWD CCACHE_SLOPPINESS=pch_defines,time_macros

failed=()  # what failed: the tests of other trees run all the same, and the exit code says so

# finish: ends the script; exit code 1 if anything failed.
finish() {
  [ ${#failed[@]} = 0 ] && exit
  (IFS=,; echo "test.sh: failed: ${failed[*]}" >&2)
  exit 1
}

# build PRESET TARGET [CMAKE-ARGUMENT...]: configures build/PRESET and builds the target. On a
# terminal Ninja shows one line; otherwise its output is shown only if it fails.
build() {
  local preset=$1 target=$2 log=build/$1.log
  echo "== build/$preset, after $SECONDS s"
  cmake --preset "$preset" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DPAVEX_TESTS_ALL=$all \
    "${@:3}" >"$log" 2>&1 || { cat "$log"; failed+=("configuring build/$preset"); finish; }
  if [ -t 1 ]; then
    cmake --build "build/$preset" -j "$jobs" --target "$target"
  else
    cmake --build "build/$preset" -j "$jobs" --target "$target" >>"$log" 2>&1 ||
      { tail -n 60 "$log"; false; }
  fi || { failed+=("building build/$preset"); finish; }
}

settings=()  # of the environment of the tests that run next

# run PRESET CTEST-ARGUMENT...: runs the tests of build/PRESET. On a terminal ctest shows one line;
# otherwise its lines on tests that begin or pass are left out. What failed comes at the end.
run() {
  # One more test than processors: some wait, for a launcher or for each other.
  local tests=(env "${settings[@]}" ctest --preset "$1" -j "$((jobs + 1))" --no-label-summary
    "${@:2}")
  if [ -t 1 ]; then
    "${tests[@]}" --progress || failed+=("build/$1")
  else
    "${tests[@]}" 2>&1 | grep --line-buffered -vE \
      '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed +[0-9.]+ sec$' ||
      failed+=("build/$1")
  fi
}

# count_faults PRESET: how many faults the last run injected.
count_faults() {
  awk '/^[0-9]+ faults injected/ {count += $1} END {print count + 0 " faults injected"}' \
    "build/$1/Testing/Temporary/LastTest.log"
}

mkdir -p build
if [ $coverage = ON ]; then
  build coverage coverage_tests
  find build/coverage -name '*.gcda' -delete
  run coverage -L '^(aggregator|assembly|comm|faults|fuzz|interop|matrix|mpi|property|runtime)$'
  gcovr --config tests/gcovr.cfg || failed+=(gcovr)
  finish
fi
# These trees run the whole suite with clang++ and the sanitizers, on two of the eight
# instantiations, with fewer random cases, the faults of two ranks and no real matrices. With --all
# they run on all instantiations, with all faults and matrices. ThreadSanitizer always sees two
# instantiations, because threads do not depend on types. Only the last tree runs
# - more than a quarter of the slow random cases of the assembler and of the verdict;
# - the packages, because they build the library themselves;
# - the lack of memory, because AddressSanitizer would report it first;
# - most of the ways in which a call can fail among peers.
# A process for each test would cost more than most of the tests, so without --all each program
# runs in four parts.
thread=() address=()
if [ $all = ON ]; then
  two_instances=OFF shards=0
else
  two_instances=ON shards=4
  thread+=(-E 'FaultsAmongPeers.*(Three|Four)|^assembly_test')
  address+=(-E '^few_per_call_faults')
  export PAVEX_PROPERTY_CASES=500
fi
build asan all -DPAVEX_TWO_INSTANCES=$two_instances -DPAVEX_SHARDS=$shards
one_thread=OPENBLAS_NUM_THREADS=1  # otherwise each run of the command starts itself again, to set it
settings=($one_thread)
if [ $all = ON ]; then
  settings+=(PAVEX_ONE_CASE_IN=4)
else
  settings=(-u PAVEX_MATRIX_DIR $one_thread
    'GTEST_FILTER=-FaultsAmongPeers*:FaultChains*Three*:FaultChains*Four*')
fi
# The faults of rounds are those of one call, injected again: the last tree has them.
run asan -LE '^(memory|package)$' "${address[@]}"
settings=()
count_faults asan
if [ $all = ON ]; then
  # Open MPI leaves memory behind at its end, so leaks are not looked for. The preset leaves out what
  # measures memory, and what limits addresses or descriptors: the sanitizer needs both itself.
  build asan_openmpi node_tests -DPAVEX_TESTS_ALL=OFF
  run asan_openmpi
fi
build tsan thread_tests -DPAVEX_TWO_INSTANCES=ON
run tsan "${thread[@]}"
unset PAVEX_PROPERTY_CASES
# Under MPICH the communicators and the library run; with --all also the command, and more than
# three processes, which take most of the time on 2 cores: MPICH's processes do not give their core
# up while they wait. So three of them take long as well over the many collectives of some tests.
few=() last=()
if [ $all = OFF ]; then
  few=(-E '\.np[478]$|^mpi_assembly.*\.np3$')
  last=(-E '^package\.static_mpi\.FetchContent$')
fi
build mpich mpi_tests -DPAVEX_TOOLS=$all
run mpich -L mpi "${few[@]}"
build openmpi all -DPAVEX_PETSC_DIRS="$petsc" -DPAVEX_HYPRE=ON -DPAVEX_HYPRE_LIBRARIES="$hypre" \
  -DPAVEX_MUMPS=ON -DPAVEX_EVERY_FAULT=$all -DPAVEX_BENCH=$all -DPAVEX_SHARDS=$shards
[ $all = ON ] || settings=($one_thread 'GTEST_FILTER=-FaultsAmongPeers*OfFourRanks*')
run openmpi "${last[@]}"
finish
