#!/usr/bin/env bash
# options_test.sh SOURCE-DIR: the table of docs/build.md has a row for every option of the build,
# and for nothing that is none.
set -euo pipefail
cd "$1"

defined=$(find CMakeLists.txt bench cmake docs examples pavex tests tools \
  -name CMakeLists.txt -o -name '*.cmake' | xargs grep -hoE '(option\(|set\()PAVEX_[A-Z_]+.*' |
  grep -E '^option|CACHE (STRING|BOOL|PATH)' | grep -oE 'PAVEX_[A-Z_]+' | sort -u)
listed=$(grep -oE '^\| `PAVEX_[A-Z_]+`' docs/build.md | tr -d '|` ' | sort -u)
diff <(echo "$defined") <(echo "$listed") || { echo "< the build has, > docs/build.md lists"; exit 1; }
[ "$(wc -l <<<"$listed")" -gt 10 ]
