#!/usr/bin/env bash
# headers.sh WORK COMPILER...: checks that the headers of the package in WORK/moved are the public
# ones, and that each compiles on its own. It omits the headers for other libraries' matrices, which
# have their own tests.
set -euo pipefail
work=$1
shift
include=$work/moved/include

cd "$include"
internal=$(find . -name '*.ipp' -o -name '*.h' | grep -E '\.ipp$|/(dense_reorder|local_group|local_operation|local_transfer|mpi_call|rules|sparse|sparse_traits|wrapping|ascending_rows|check|merge|piece|decisions|range|renumbered_comm|row_merger|stacked_offsets)\.h$' || true)
if [ -n "$internal" ]; then
  echo "Internal headers are installed:" $internal
  exit 1
fi

count=0
for header in $(find pavex -name '*.h' -not -path 'pavex/interop/*' -not -name mpi_comm.h); do
  echo "#include <$header>" |
    "$@" -std=c++17 -Wall -Wextra -Wpedantic -Werror -I"$include" -fsyntax-only -x c++ -
  count=$((count + 1))
done
echo "$count headers compile on their own."
[ "$count" -gt 20 ]
