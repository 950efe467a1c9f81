#!/usr/bin/env bash
# Runs every benchmark and writes docs/benchmarks.md. Run it on an otherwise idle machine.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bench/run.sh >"$work/results"
bench/run.sh large_gather >"$work/large"

# Prints the rows whose figure is above its limit: "1.41 (at most 1.3)" or "(at most 15)   17.2".
awk '{
  rest = $0
  while (match(rest, /[0-9.]+ \(at most [0-9.]+\)|\(at most [0-9.]+\) +[0-9.]+/)) {
    pair = substr(rest, RSTART, RLENGTH)
    rest = substr(rest, RSTART + RLENGTH)
    limit = pair ~ /^\(/ ? 1 : 2
    gsub(/[^0-9.]+/, " ", pair)
    split(pair, number, " ")
    if (number[3 - limit] + 0 > number[limit] + 0) { print; next }
  }
}' "$work/results" "$work/large" >"$work/over"

{
  cat <<'HEAD'
# Benchmarks

One run of each benchmark, one after the other, on one machine. `bench/table.sh` makes this page again.
Every comparison times a baseline and Pavex in turn in the same run, after a warm-up. The figures are
the median time of the baseline and the median ratio to it, so less is better. Each ratio that has a
limit is followed by it.

Between threads a small operation takes a few microseconds, most of which the threads need to meet: the
column "same calls by hand" shows what the calls of the communicator cost without the library. An update
brings the values in a new array and frees the old one, so its repetitions use twice the cache of a copy
into one array; `UpdateInPlace` does not. A receiver of a million records sets them up, receives them,
reads them once and writes the counts.

The gathers over MPI run with Open MPI as it is by default, where the kernel copies long messages from one
process to the other, and once more without that. Then they run with MPICH. Limits hold for the first. What
NodeComm gains depends on how fast these copies of the kernel are on the machine. With more processes than
cores the baseline is `MpiComm`. There a waiting process of MPICH keeps its core until its turn ends,
so that messages take milliseconds; gathers to all, which take seconds, are left out. Two cores that copy at
the same time share the memory of the machine: "memcpy by all at once" is the time in which each process
copies its piece of an update into an array of its own, without any message.

HEAD
  echo "Run on $(date +%F), commit $(git rev-parse --short HEAD), $(nproc) cores," \
    "$(awk '/MemTotal/ {printf "%.0f", $2 / 1048576}' /proc/meminfo) GiB of memory," \
    "$(uname -sr), huge pages: $(sed 's/.*\[\(.*\)\].*/\1/' /sys/kernel/mm/transparent_hugepage/enabled)."
  echo
  if [ -s "$work/over" ]; then
    printf '%s\n' 'Above their limits:' '' '```'
    cat "$work/over"
    printf '%s\n' '```'
  else
    echo 'No row is above its limit.'
  fi
  printf '%s\n' '' '```'
  cat "$work/results"
  echo '```'
  cat <<'LARGE'

## More elements than an int counts

`bench/run.sh large_gather` gathers 2^31 + 2^28 floats, which take several calls, onto one process: 9.7 GB
of real memory. The baseline is as many elements in nine gathers of 2^28, each of which is one call. The
pieces lie on repeated pages of a memory file. The program takes 11 GB, so `bench/run.sh` runs it only by
its name.

LARGE
  echo '```'
  cat "$work/large"
  echo '```'
} >"$work/page"
cp "$work/page" docs/benchmarks.md
