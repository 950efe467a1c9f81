#!/usr/bin/env bash
# install.sh WORK SOURCE CMAKE-ARGUMENT...: builds the library in WORK/build, installs it,
# uninstalls it, installs it again and moves the installed files to WORK/moved, where the other
# tests of the package use them.
set -euo pipefail
work=$1 source=$2
shift 2

rm -rf "$work/fresh" "$work/moved"
cmake -S "$source" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DPAVEX_TESTS=OFF \
  -DPAVEX_BENCH=OFF -DPAVEX_EXAMPLES=OFF -DCMAKE_INSTALL_PREFIX="$work/fresh" "$@"
cmake --build "$work/build" -j 2
cmake --install "$work/build"
xargs -d '\n' rm <"$work/build/install_manifest.txt"
left=$(find "$work/fresh" -not -type d)
[ -z "$left" ] || { echo "Uninstalling left these files:"; echo "$left"; exit 1; }
cmake --install "$work/build"
mv "$work/fresh" "$work/moved"

# No installed file may contain the folder that it came from.
if grep -rlF -e "$work" -e "$source" "$work/moved"; then
  echo "These files name the folder of the build, of the installation or of the sources."
  exit 1
fi
