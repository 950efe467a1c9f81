#!/usr/bin/env bash
# man_page_test.sh PAVEX MAN-PAGE: checks that the man page has an entry for each subcommand and
# each option that --help lists, and no other entries, and that it formats without a warning.
set -euo pipefail
pavex=$1 page=$2

# Prints the options that a help text lists, one on each line.
listed() { sed -n 's/^  \(-h,\)\{0,1\}\(--[a-z][a-z-]*\).*/\2/p'; }
subcommands=$("$pavex" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p')
[ -n "$subcommands" ]

plain=$(sed 's/\\-/-/g' "$page")
for subcommand in $subcommands; do
  grep -q "^\.B pavex $subcommand$" <<<"$plain" ||
    { echo "The man page has no synopsis of pavex $subcommand."; exit 1; }
done

options=$({ "$pavex" --help; for name in $subcommands; do "$pavex" "$name" --help; done; } |
  listed | sort -u)
entries=$(sed -n '/^\.TP/{n;s/^\.BI\{0,1\}R\{0,1\} \(-h ", " \)\{0,1\}\(--[a-z][a-z-]*\).*/\2/p}' \
  <<<"$plain" | sort -u)
diff <(echo "$options") <(echo "$entries") ||
  { echo "< is only in --help, > is only in the man page."; exit 1; }
[ "$(wc -l <<<"$options")" -gt 10 ]

if command -v groff >/dev/null; then
  warnings=$(groff -man -Tutf8 -ww -z "$page" 2>&1)
  [ -z "$warnings" ] || { echo "$warnings"; exit 1; }
fi
echo "The man page describes $(wc -l <<<"$options") options."
