#!/usr/bin/env bash
# documents.sh WORK SOURCE: the package in WORK/moved brings the licence and every document, and the
# links between them lead to files that it brings as well.
set -euo pipefail
documents=$1/moved/share/doc/pavex source=$2

cd "$source"
for document in LICENSE *.md docs/*.md; do
  cmp "$document" "$documents/$document"
done
bash tests/docs/links_test.sh "$documents"
