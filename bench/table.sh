#!/usr/bin/env bash
# Runs every benchmark and writes docs/benchmarks.md anew. Wants an otherwise idle machine.
set -euo pipefail
cd "$(dirname "$0")/.."
table=$(mktemp)
trap 'rm -f "$table"' EXIT
{
  cat <<'HEAD'
# Benchmarks

Written by `bench/table.sh`, on one machine in one run. Every comparison times a baseline and Pavex in
turn in the same run, after a warm-up; the figures are the median time of the baseline and the
median ratio to it, so less is better. Behind a ratio stands what it should stay below.

HEAD
  echo "Run on $(date +%F), commit $(git rev-parse --short HEAD), $(nproc) cores," \
    "$(awk '/MemTotal/ {printf "%.0f", $2 / 1048576}' /proc/meminfo) GiB of memory," \
    "$(uname -sr), huge pages: $(sed 's/.*\[\(.*\)\].*/\1/' /sys/kernel/mm/transparent_hugepage/enabled)."
  echo
  echo '```'
  bench/run.sh
  echo '```'
} >"$table"
cp "$table" docs/benchmarks.md
