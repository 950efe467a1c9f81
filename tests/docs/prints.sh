#!/usr/bin/env bash
# prints.sh EXIT-CODE TEXT COMMAND...: the command exits with that code and prints that text.
set -uo pipefail
code=$1 text=$2
shift 2

printed=$("$@")
exited=$?
diff <(printf '%s\n' "$text") <(printf '%s\n' "$printed") || exit 1
if [ "$exited" -ne "$code" ]; then
  echo "exit code $exited, not $code"
  exit 1
fi
