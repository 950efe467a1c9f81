#!/usr/bin/env bash
# code_test.sh SOURCE-DIR EXAMPLES-DIR: every block of a document that is fenced cpp or c++ is,
# line for line, in a program of examples/ or in a header of pavex/; every block that is fenced
# output is what the example shown last prints. EXAMPLES-DIR holds the built examples.
set -euo pipefail
examples=$2
cd "$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One file for each block of the document, named by its number and its word: 003.cpp
split() {
  awk -v work="$work" '
    !inside && match($0, /^```[a-z+]*/) {
      word = substr($0, 4); inside = 1
      file = sprintf("%s/%03d.%s", work, ++count, word == "" ? "text" : word); printf "" >file; next
    }
    /^```$/ {inside = 0; close(file); next}
    inside {print >file}' "$1"
}

# The file that contains the text.
origin() {
  local file
  for file in examples/*.cpp $(find pavex -name '*.h'); do
    [[ $(<"$file") == *"$1"* ]] && echo "$file" && return
  done
  return 1
}

blocks=0
for document in ./*.md docs/*.md; do
  rm -f "$work"/*
  split "$document"
  shown=
  for block in "$work"/*; do
    case "$block" in
      *.cpp | *.c++)
        shown=$(origin "$(<"$block")") ||
          { echo "$document shows code that nothing compiles:"; cat "$block"; exit 1; } ;;
      *.output)
        diff "$block" <("$examples/$(basename "$shown" .cpp)") ||
          { echo "$document: $shown prints something else"; exit 1; } ;;
      *) continue ;;
    esac
    blocks=$((blocks + 1))
  done
done
echo "$blocks blocks of code or output"
[ "$blocks" -gt 10 ]
