#!/usr/bin/env bash
# rooms_test.sh SOURCE-DIR: the tables of docs/design.md that end with a column "includes" list the
# folders of pavex/ and tools/ from the lowest to the highest. Each folder includes files of exactly
# the folders in its last column, and all of them stand above it in its table.
set -euo pipefail
cd "$1"

# One line "FOLDER INCLUDED" per pair of different folders.
included() {
  grep -roE '#include ["<](pavex|tools)/[a-z]+/' pavex tools |
    sed -nE 's,^((pavex|tools)/[a-z]+)/[^:]*:#include .(.*)/$,\1 \3,p' |
    awk '$1 != $2 && !($1 ~ /^tools/ && $2 ~ /^pavex/)' | sort -u
}

# The rows "| `FOLDER/` | ... | `INCLUDED` `INCLUDED` |"; a name without a tree is of the same tree.
rows() {
  awk -F ' *[|] *' '/^\|.*\| includes \|$/ {on = 1; next} !/^\|/ {on = 0}
    on && $2 ~ /^`/ {print $2 " " $(NF - 1)}' docs/design.md | tr -d '`'
}
listed() {
  while read -r folder names; do
    for name in $names; do echo "${folder%/} ${folder%%/*}/$name"; done
  done < <(rows) | sort -u
}

faults=0
fault() {
  echo "$1"
  faults=$((faults + 1))
}

while read -r folder other; do fault "$folder includes $other, which docs/design.md does not list"
done < <(comm -23 <(included) <(listed))
while read -r folder other; do fault "docs/design.md lists that $folder includes $other; no file does"
done < <(comm -13 <(included) <(listed))

above=" "
while read -r folder names; do
  for name in $names; do
    [[ "$above" == *" ${folder%%/*}/$name "* ]] || fault "$folder includes $name, which stands below it"
  done
  above+="${folder%/} "
done < <(rows)
for folder in pavex/*/ tools/*/; do
  [[ "$above" == *" ${folder%/} "* ]] || fault "docs/design.md does not list $folder"
done
for folder in $above; do
  [ -d "$folder" ] || fault "docs/design.md lists $folder, which does not exist"
done

echo "$(wc -w <<<"$above") folders, $(included | wc -l) pairs, $faults faults"
[ "$(wc -w <<<"$above")" -gt 10 ] && [ "$faults" -eq 0 ]
