#!/usr/bin/env bash
# use.sh WAY KIND WORK CONSUMERS [CMAKE-ARGUMENT...]: builds the consumer programs and runs them.
# WAY is cmake or pkg-config (against the package in WORK/moved), add_subdirectory or FetchContent
# (against the sources). KIND is static or shared. The environment decides two more things:
#   CONSUMER_MPI=ON       also builds the program over MPI, and runs it by MPIEXEC, which is a
#                         launcher with its option for the number of processes
#   CONSUMER_BUILD_TYPE   the build type of a project that contains the sources, Release if unset;
#                         empty: the project sets none
set -euo pipefail
way=$1 kind=$2 work=$3 consumers=$4
shift 4
mpi=${CONSUMER_MPI:-OFF}
build_type=${CONSUMER_BUILD_TYPE-Release}
build=$work/$way
programs=(core local)
[ "$mpi" = OFF ] || programs+=(mpi)

rm -rf "$build"
case "$way" in
  cmake)
    cmake -S "$consumers/consumer" -B "$build" -DCMAKE_PREFIX_PATH="$work/moved" \
      -DCONSUMER_MPI="$mpi" "$@"
    cmake --build "$build"
    ;;
  add_subdirectory | FetchContent)
    shared=OFF
    [ "$kind" = static ] || shared=ON
    cmake -S "$consumers/subproject" -B "$build" -DPAVEX_SOURCE="$(cd "$consumers/../.." && pwd)" \
      -DPAVEX_WAY="$way" -DBUILD_SHARED_LIBS=$shared -DPAVEX_MPI="$mpi" -DPAVEX_WERROR=ON \
      ${build_type:+-DCMAKE_BUILD_TYPE="$build_type"} "$@"
    cmake --build "$build" -j 2
    ;;
  pkg-config)
    mkdir "$build"
    PKG_CONFIG_PATH=$(dirname "$(find "$work/moved" -name pavex.pc)")
    export PKG_CONFIG_PATH
    if [ "$kind" = static ]; then
      export PKG_CONFIG_FLAGS=--static
    else
      LDFLAGS=-Wl,-rpath,$(pkg-config --variable=libdir pavex)
      export LDFLAGS
    fi
    make -C "$build" -f "$consumers/consumer/Makefile" SOURCE="$consumers/consumer" \
      programs="${programs[*]} $([ "$mpi" = OFF ] || echo libpart.so)"
    ;;
esac

# says TEXT COMMAND...: checks that the command succeeds and its output begins with the text.
says() {
  local expected=$1 said
  shift
  said=$("$@")
  echo "$said"
  [[ $said = "$expected"* ]] || { echo "\"$expected\" was expected"; exit 1; }
}

for program in core local; do
  linked=$(ldd "$build/$program")
  if [[ $kind = shared && $linked != *libpavex.so.* || $kind = static && $linked = *libpavex* ]]
  then
    echo "$program is not linked to the $kind library:"
    echo "$linked"
    exit 1
  fi
done
version=$(sed -n 's/#define PAVEX_VERSION "\(.*\)"/\1/p' "$consumers/../../pavex/runtime/version.h")
says "core: right, $version, $kind, ${build_type:-no build type}, " "$build/core"
says "local: right on 3 ranks" "$build/local"
# A plug-in that contains a static Pavex::mpi stays loaded.
if [ -e "$build/libpart.so" ] && [ "$kind" = static ]; then
  readelf -d "$build/libpart.so" | grep -q NODELETE || { echo "a plug-in can be unloaded"; exit 1; }
fi
[ "$mpi" = OFF ] || says "mpi: right on 2 ranks" $MPIEXEC 2 "$build/mpi"
