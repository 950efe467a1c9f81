#!/usr/bin/env bash
# pages_test.sh SOURCE-DIR: pages stay short enough to read, and their lines fit a screen. Tables,
# code and links may have longer lines.
set -euo pipefail
cd "$1"

bad=0
# at_most LINES PAGE
at_most() {
  local lines
  lines=$(wc -l <"$2")
  [ "$lines" -le "$1" ] && return
  echo "$2 has $lines lines; at most $1 are allowed: move a part to a page of its own"
  bad=1
}
at_most 200 README.md
at_most 450 docs/guide.md

for page in ./*.md docs/*.md; do
  long=$(awk '/^```/ {inside = !inside} !inside && !/^\|/ && !/\]\(/ && length > 110 {print FNR}' "$page")
  [ -z "$long" ] && continue
  echo "$page: lines too long:" $long
  bad=1
done
exit $bad
