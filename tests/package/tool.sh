#!/usr/bin/env bash
# tool.sh WORK: checks that the pavex command of the package in WORK/moved finds its libraries
# there, works, and has its man page and its completion.
set -euo pipefail
moved=$1/moved

ldd "$moved/bin/pavex" | grep -F "libpavex.so" | grep -F "$(realpath "$moved")"
"$moved/bin/pavex" gather --generate random:200 --format csc --partition columns
[ -s "$moved/share/man/man1/pavex.1" ]
[ -s "$moved/share/bash-completion/completions/pavex" ]
