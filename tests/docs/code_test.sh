#!/usr/bin/env bash
# code_test.sh SOURCE-DIR EXAMPLES-DIR DOCUMENT: every block of the document that is fenced cpp or
# c++ stands, line for line, in a program of examples/ or in a header of pavex/; every block that is
# fenced output is what the example shown last prints. EXAMPLES-DIR holds the built examples.
set -euo pipefail
source=$1 examples=$2 document=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One file for each block, named by its number and its word: 003.cpp
awk -v work="$work" '
  !inside && match($0, /^```[a-z+]*/) {
    word = substr($0, 4); inside = 1
    file = sprintf("%s/%03d.%s", work, ++count, word == "" ? "text" : word); printf "" >file; next
  }
  /^```$/ {inside = 0; close(file); next}
  inside {print >file}' "$source/$document"

# The path, without its folder for an example, of the file that contains the text.
origin() {
  local file text=$1
  for file in "$source"/examples/*.cpp $(find "$source/pavex" -name '*.h'); do
    [[ $(<"$file") == *"$text"* ]] && echo "${file#"$source"/}" && return
  done
  return 1
}

blocks=0 shown=
for block in "$work"/*; do
  case "$block" in
    *.cpp | *.c++)
      shown=$(origin "$(<"$block")") || { echo "$document shows code that nothing compiles:"; cat "$block"; exit 1; } ;;
    *.output)
      diff "$block" <("$examples/$(basename "$shown" .cpp)") || { echo "$shown prints something else"; exit 1; } ;;
    *) continue ;;
  esac
  blocks=$((blocks + 1))
done
echo "$document: $blocks blocks of code or output"
[ "$blocks" -gt 0 ]
