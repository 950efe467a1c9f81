#!/usr/bin/env bash
# documents.sh WORK SOURCE: checks that the package in WORK/moved contains the licence and every
# document, and that the links between them lead to files that it contains.
set -euo pipefail
documents=$1/moved/share/doc/pavex source=$2

cd "$source"
for document in LICENSE *.md docs/*.md; do
  cmp "$document" "$documents/$document"
done
bash tests/docs/links_test.sh "$documents"
