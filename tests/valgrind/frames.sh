#!/usr/bin/env bash
# frames.sh VALGRIND LAUNCHER OPTION PROCESSES PROGRAM [ARGUMENT...]: runs an MPI job under valgrind.
# MPI and PETSc have errors of their own there, so only those count that have a function of ours
# among their frames, and only lost memory that a function of ours asked for itself.
set -uo pipefail
valgrind=$1
shift
# Without shared memory: the leak check would read all addresses that are reserved for it, twice the
# memory of the machine, and so take up every page of them.
ulimit -f 1000000
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

PETSC_OPTIONS="${PETSC_OPTIONS:-} -malloc no" "${@:1:3}" "$valgrind" --fair-sched=yes \
  --leak-check=full --show-leak-kinds=definite --num-callers=40 --log-file="$logs/%p" "${@:4}"
status=$?

# One paragraph for each error, without the process's number at the beginning of the lines.
paragraphs() { sed -E 's/^==[0-9]+== ?//' "$1"; }
found=0 processes=0
for log in "$logs"/*; do
  grep -q 'ERROR SUMMARY' "$log" || continue
  processes=$((processes + 1))
  ours=$(paragraphs "$log" | awk -v RS= '
    /definitely lost in loss record/ {
      # The caller of the function that gives the memory out.
      split($0, line, "\n")
      for (i = 2; line[i] ~ /(alloc|realloc|calloc|memalign|operator new).*\(/; ++i);
      if (line[i] ~ /Pavex/) print $0 "\n"
      next
    }
    /(at|by) 0x[0-9A-F]+: .*Pavex/ && !/^(HEAP|LEAK) SUMMARY/ {print $0 "\n"}')
  [ -z "$ours" ] || { echo "$ours"; found=$((found + 1)); }
done
echo "$processes processes under valgrind, $found of them with errors in our frames"
[ "$status" -eq 0 ] && [ "$processes" -ge "$3" ] && [ "$found" -eq 0 ]
