#!/usr/bin/env bash
# refused.sh GOOD BAD COUNT TEXT COMPILER...: checks that the program GOOD compiles, and that BAD
# does not, with COUNT errors that contain TEXT.
set -euo pipefail
good=$1 bad=$2 count=$3 text=$4
shift 4

"$@" "$good"
if said=$("$@" "$bad" 2>&1); then
  echo "compiles, but should not:"
  cat "$bad"
  exit 1
fi
found=$(grep 'error:' <<<"$said" | grep -cF "$text" || true)
if [ "$found" -ne "$count" ]; then
  printf '%s errors say "%s", not %s:\n%s\n' "$found" "$text" "$count" "$said"
  exit 1
fi
