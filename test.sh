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
  libopenmpi-dev openmpi-bin libmpich-dev mpich iproute2 make dpkg-dev file groff-base

jobs=$(nproc)
export CCACHE_BASEDIR=$PWD

# The sanitizers take two of the eight instantiations, with --all every one.
two=OFF
[ $all = ON ] || two=ON

# build PRESET [CMAKE-BUILD-ARGUMENT...]: configures and builds build/PRESET.
build() {
  local preset=$1 log=build/$1.log
  shift
  echo "== build/$preset"
  cmake --preset "$preset" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DPAVEX_TESTS_ALL=$all \
    -DPAVEX_TWO_INSTANCES=$two >"$log" 2>&1 || { cat "$log"; return 1; }
  cmake --build --preset "$preset" -j "$jobs" "$@" >>"$log" 2>&1 ||
    { tail -n 60 "$log"; return 1; }
}

# run PRESET CTEST-ARGUMENT...: runs the tests of build/PRESET.
run() {
  ctest --preset "$1" -j "$jobs" --progress "${@:2}"
}

mkdir -p build
build asan
run asan -LE package  # which build the library by themselves: once is enough
build tsan
run tsan
two=OFF
build mpich --target mpi_tests
run mpich -L mpi
build openmpi
run openmpi
