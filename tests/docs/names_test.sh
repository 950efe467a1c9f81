#!/usr/bin/env bash
# names_test.sh SOURCE-DIR: every path, every test (`Suite.Name`) and every test program (`..._test`)
# that a document names in backticks exists, and `Function` in `file` is in that file.
set -euo pipefail
cd "$1"

programs=$(find tests -name CMakeLists.txt -exec cat {} + | grep -oE '\b[a-z_]+_test\b' | sort -u)
tests=$(find tests -name '*.cpp' -exec cat {} + | tr -d '\n' |
  grep -oE 'TEST(_[FP])?\([A-Za-z0-9]+, *[A-Za-z0-9]+' | sed -E 's/.*\(//; s/, */./')

paths=0 named=0 missing=0
while read -r document name; do
  case "$name" in
    */*)
      paths=$((paths + 1))
      compgen -G "$name" >/dev/null && continue ;;
    *_test)
      named=$((named + 1))
      grep -qxF "$name" <<<"$programs" && continue ;;
    *)
      named=$((named + 1))
      grep -qxF "$name" <<<"$tests" && continue ;;
  esac
  echo "$document names $name, which does not exist"
  missing=$((missing + 1))
done < <(for document in ./*.md docs/*.md; do
  grep -oE '`[^` ]+`' "$document" | tr -d '`' |
    grep -E '^(bench|cmake|docs|examples|packaging|pavex|tests|tools)/[A-Za-z0-9_./*-]*$|^[A-Z][A-Za-z0-9]+\.[A-Z][A-Za-z0-9]+$|^[a-z_]+_test$' |
    sed "s|^|$document |" || true
done)
while read -r place; do
  file=${place##* in }
  for name in $(grep -oE '[A-Za-z_:]+' <<<"${place% in *}" | grep -vx and); do
    named=$((named + 1))
    grep -qw "${name##*::}" "$file" && continue
    echo "$file does not contain $name"
    missing=$((missing + 1))
  done
done < <(grep -hoE '`[A-Za-z_:]+`( and `[A-Za-z_:]+`)? in `[a-z_]+/[a-z_/]+\.(h|cpp|ipp)`' ./*.md docs/*.md | tr -d '`')
echo "$paths paths and $named tests and functions named, $missing of them missing"
[ "$paths" -gt 10 ] && [ "$missing" -eq 0 ]
