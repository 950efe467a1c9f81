#!/usr/bin/env bash
# room_test.sh PLUGIN LINEAR ROOMS LAUNCHER...: the process that receives has so many MiB of room. Whatever
# fails there for want of memory is an error of PETSc on every process, and none waits for ever, also when
# they try again with room.
set -uo pipefail
plugin=$1 linear=$2 rooms=$3
shift 3

# Shared memory has addresses of its own from the start; without it blocks come from the system.
ulimit -f 1000000
failed=0 succeeded=0
for room in $rooms; do
  for way in '' '-columns 10' '-pavex_receiver 0' '-pavex_receiver 0 -columns 10 -again'; do
    verdict=$(timeout 60 "$@" 3 "$linear" -dll_append "$plugin" -pc_type pavex -pavex_pc_type none \
      -ksp_type preonly -n 600 -steps 1 -tolerance 10 -errors -starved 0 -room "$room" $way 2>&1 |
      grep '^errors on')
    if [[ $way = *-again* ]]; then
      [ "$verdict" = 'errors on 0 processes' ] && continue
      echo "again, after room for $room MiB: ${verdict:-no end}"
      exit 1
    fi
    case "$verdict" in
      'errors on 3 processes') failed=$((failed + 1)) ;;
      'errors on 0 processes') succeeded=$((succeeded + 1)) ;;
      *) echo "room for $room MiB, $way: ${verdict:-no end}"; exit 1 ;;
    esac
  done
done
echo "$failed runs failed, $succeeded succeeded"
[ $failed -gt 0 ] && [ $succeeded -gt 0 ]
