#!/usr/bin/env bash
# once.sh succeeds|fails LINE COMMAND...: checks that the command succeeds (fails) and prints, on
# either stream, exactly one line that begins with the first word of LINE. The basic regular
# expression LINE must match the whole line.
set -uo pipefail
how=$1 line=$2
shift 2

printed=$("$@" 2>&1)
code=$?
printf '%s\n' "$printed"
case $how in
  succeeds) [ "$code" -eq 0 ] || { echo "exit code $code"; exit 1; } ;;
  fails) [ "$code" -ne 0 ] || { echo "exit code 0"; exit 1; } ;;
  *) echo "neither succeeds nor fails: $how"; exit 1 ;;
esac
lines=$(grep -c "^${line%% *} " <<<"$printed")
[ "$lines" -eq 1 ] || { echo "$lines lines begin with '${line%% *}'"; exit 1; }
grep -qx "$line" <<<"$printed" || { echo "no line is '$line'"; exit 1; }
