#!/usr/bin/env bash
# links_test.sh SOURCE-DIR: every relative link in the documents leads to a file, and to a heading
# if it names one.
set -euo pipefail
cd "$1"

# The headings of a document as the ends of links spell them.
anchors() {
  awk '/^```/ {inside = !inside} !inside && /^#+ /' "$1" |
    sed -E 's/^#+ //' | tr '[:upper:]' '[:lower:]' | sed -E 's/[^a-z0-9 _-]//g; s/ /-/g'
}

links=0 broken=0
for document in ./*.md docs/*.md; do
  while read -r link; do
    links=$((links + 1))
    path=${link%%#*} heading=
    [[ $link == *#* ]] && heading=${link#*#}
    target=$document
    [ -z "$path" ] || target=$(dirname "$document")/$path
    if [ ! -e "$target" ] ||
      { [ -n "$heading" ] && ! anchors "$target" | grep -xF -e "$heading" >/dev/null; }; then
      echo "$document: $link leads nowhere"
      broken=$((broken + 1))
    fi
  done < <(grep -oE '\]\([^) ]+\)' "$document" | sed -E 's/^\]\((.*)\)$/\1/' | grep -vE '^[a-z]+:' || true)
done
echo "$links links, $broken broken"
[ "$links" -gt 10 ] && [ "$broken" -eq 0 ]
