#!/usr/bin/env bash
# Set-up and every test, from a bare Debian 12 machine.
#
#   ./test.sh              what every change must pass; under 20 minutes on 2 cores
#   ./test.sh --all        the slow tests as well; under an hour
#
# PAVEX_MATRIX_DIR names a folder of Matrix Market files that are read and gathered as well.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/setup.sh

all=OFF
case "${1:-}" in
  --all) all=ON ;;
  "") ;;
  *) echo "test.sh: unknown option '$1'; see the head of the file" >&2; exit 2 ;;
esac

need "${build_packages[@]}" ccache libgtest-dev libgmock-dev libeigen3-dev libsuitesparse-dev \
  libopenmpi-dev openmpi-bin libmpich-dev mpich iproute2

jobs=$(nproc)
export CTEST_OUTPUT_ON_FAILURE=1 CTEST_NO_TESTS_ACTION=error CCACHE_BASEDIR=$PWD

# build TREE TARGET CMAKE-ARGUMENT...: configures build/TREE and builds the target.
build() {
  local tree=build/$1 target=$2
  shift 2
  echo "== $tree"
  cmake -B "$tree" -G Ninja -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DPAVEX_TESTS_ALL=$all \
    "$@" >"$tree.log" 2>&1 || { cat "$tree.log"; return 1; }
  cmake --build "$tree" -j "$jobs" --target "$target" >>"$tree.log" 2>&1 ||
    { tail -n 60 "$tree.log"; return 1; }
}

# run TREE CTEST-ARGUMENT...: runs the tests of build/TREE.
run() {
  local tree=build/$1
  shift
  ctest --test-dir "$tree" -j "$jobs" --progress "$@"
}

# The sanitizers take two of the eight instantiations, with --all every one.
sanitized=(-DCMAKE_BUILD_TYPE=Debug -DPAVEX_BENCH=OFF -DPAVEX_EXAMPLES=OFF)
[ $all = ON ] || sanitized+=(-DPAVEX_TWO_INSTANCES=ON)
openmpi=(-DPAVEX_MPI=ON -DMPI_CXX_COMPILER=mpicxx.openmpi -DMPIEXEC_EXECUTABLE=/usr/bin/mpiexec.openmpi)
mpich=(-DPAVEX_MPI=ON -DMPI_CXX_COMPILER=mpicxx.mpich -DMPIEXEC_EXECUTABLE=/usr/bin/mpiexec.mpich)

mkdir -p build
build asan all "${sanitized[@]}" \
  -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1 -fsanitize=address,undefined -fno-sanitize-recover=all"
run asan
build tsan thread_tests "${sanitized[@]}" -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1 -fsanitize=thread"
run tsan -R '^(local_comm_test|local_property_test)[.]'
build mpich mpi_tests -DCMAKE_BUILD_TYPE=Release "${mpich[@]}"
run mpich -L mpi
build openmpi all -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-D_GLIBCXX_ASSERTIONS "${openmpi[@]}"
run openmpi
