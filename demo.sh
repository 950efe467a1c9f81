#!/usr/bin/env bash
# Set-up and the main job, from a bare Debian 12 machine.
#
#   ./demo.sh              gathers a 3-D convection-diffusion operator with 28.5 million entries
#                          from 4 ranks to one, sends new values, and checks every entry
#   ./demo.sh A.mtx        does the same with a Matrix Market file
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/cmake/setup.sh"

if [ $# -gt 1 ] || [ "${1:-}" = --help ]; then
  sed -n '2,6s/^# \{0,1\}//p' "$0" >&2
  exit 2
fi
input=(--generate convection3d:160)
[ $# -eq 0 ] || input=("$1")

need "${build_packages[@]}"
tree=$here/build/release
mkdir -p "$tree"
echo "Building in build/release"
{
  cmake -S "$here" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPAVEX_TESTS=OFF \
    -DPAVEX_BENCH=OFF -DPAVEX_EXAMPLES=OFF &&
    cmake --build "$tree" --target pavex_command
} >"$tree/demo.log" 2>&1 || { tail -n 60 "$tree/demo.log" >&2; exit 1; }

command=("$tree/tools/pavex" gather "${input[@]}" --ranks 4 --updates 2)
echo "pavex ${command[*]:1}"
echo
exec "${command[@]}"
