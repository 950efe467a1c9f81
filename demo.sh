#!/usr/bin/env bash
# Set-up and the main job, from a bare Debian 12 machine.
#
#   ./demo.sh              solves a 3-D convection-diffusion problem on 4 ranks: each holds a band
#                          of the operator, one factors and solves, all check the residual; then
#                          five time steps with new values
#   ./demo.sh A.mtx        gathers a Matrix Market file, sends new values twice, and checks every
#                          entry; solves with it if it is square
#
# Draws the pattern of the matrix, coloured by rank, and the solution into out/.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/cmake/setup.sh"

if [ $# -gt 1 ] || [ "${1:-}" = --help ]; then
  sed -n '2,10s/^# \{0,1\}//p' "$0" >&2
  exit 2
fi
need "${build_packages[@]}"
tree=$here/build/release
mkdir -p "$tree"
echo "Building in build/release"
{
  cmake -S "$here" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPAVEX_CAIRO=ON \
    -DPAVEX_TESTS=OFF -DPAVEX_BENCH=OFF -DPAVEX_EXAMPLES=OFF &&
    cmake --build "$tree" --target pavex_command
} >"$tree/demo.log" 2>&1 || { tail -n 60 "$tree/demo.log" >&2; exit 1; }

run() {
  echo
  echo "pavex $*"
  echo
  "$tree/tools/pavex" "$@"
}

mkdir -p "$here/out"
pattern=$here/out/pattern.png solution=$here/out/solution.png
rm -f "$pattern" "$solution"
if [ $# -eq 0 ]; then
  problem=(--generate convection3d:30 --ranks 4 --format csc --partition columns)
  run gather "${problem[@]}" --plot "$pattern"
  run solve "${problem[@]}" --steps 5 --plot "$solution"
else
  run gather "$1" --ranks 4 --updates 2 --plot "$pattern"
  # The size line is the first line that is not a comment.
  if awk '!/^%/ && NF {exit $1 != $2}' "$1"; then
    run solve "$1" --ranks 4 --format csr --plot "$solution"
  fi
fi
echo
echo "Pictures:"
for picture in "$pattern" "$solution"; do
  [ ! -e "$picture" ] || echo "  $picture"
done
