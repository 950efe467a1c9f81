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

sanitized=(-DCMAKE_BUILD_TYPE=Debug -DPAVEX_BENCH=OFF -DPAVEX_EXAMPLES=OFF)
address=-DCMAKE_CXX_FLAGS_DEBUG="-O0 -g1 -fsanitize=address,undefined -fno-sanitize-recover=all"
thread=-DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1 -fsanitize=thread"
openmpi=(-DPAVEX_MPI=ON -DMPI_CXX_COMPILER=mpicxx.openmpi -DMPIEXEC_EXECUTABLE=/usr/bin/mpiexec.openmpi)
mpich=(-DPAVEX_MPI=ON -DMPI_CXX_COMPILER=mpicxx.mpich -DMPIEXEC_EXECUTABLE=/usr/bin/mpiexec.mpich)

mkdir -p build
# Under the sanitizers the library and the reading of files, on two of the eight instantiations;
# with --all everything on all of them.
if [ $all = ON ]; then
  build asan all "${sanitized[@]}" "$address"
  run asan
else
  sanitized+=(-DPAVEX_TWO_INSTANCES=ON)
  build asan address_tests "${sanitized[@]}" "$address"
  run asan -L '^(aggregator|comm|input|matrix|property|runtime)$'
fi
build tsan thread_tests "${sanitized[@]}" "$thread"
run tsan -R '^(local_comm_test|local_property_test)[.]'
build mpich mpi_tests -DCMAKE_BUILD_TYPE=Release "${mpich[@]}"
run mpich -L mpi
build openmpi all -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-D_GLIBCXX_ASSERTIONS "${openmpi[@]}"
run openmpi
