#!/usr/bin/env bash
# killed.sh MPIEXEC PROGRAM PAIRS: runs node_killed with that many pairs of processes. Fails unless
# every operation that waited for a killed process returned STATUS_COMM_FAILED, the launcher ended
# the job with a failure, and no process of it is left.
set -uo pipefail
mpiexec=$1 program=$(realpath "$2") pairs=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
complain() { echo "$*"; failed=1; }

# expect_end PROCESSES: all of them have noted themselves, and none is there any more.
is_left() { [ "$(readlink "/proc/$1/exe")" = "$program" ]; }
expect_end() {
  local number tenths
  [ "$(cat "$work"/process.* | wc -l)" -eq "$1" ] || complain "not all of $1 processes have begun"
  for number in $(cat "$work"/process.*); do
    for ((tenths = 0; tenths < 100; ++tenths)); do
      is_left "$number" || continue 2
      sleep 0.1
    done
    complain "process $number is left"
    kill -9 "$number"
  done
  rm "$work"/process.*
}

# Launchers kill the others as soon as a process has ended. Here each of them sees a shell, which
# stays until all pairs have noted what they saw.
cat >"$work/rank" <<RANK
#!/bin/sh
"\$@"
code=\$?
until [ -e "$work/over" ]; do sleep 0.1; done
exit \$code
RANK
chmod +x "$work/rank"
case $("$mpiexec" --version) in
  *HYDRA*) options=() ;;
  *) options=(--mca odls_base_sigkill_timeout 2) ;;  # it also sees lost connections
esac
"$mpiexec" "${options[@]}" -n $((2 * pairs)) "$work/rank" "$program" "$work" >"$work/output" 2>&1 &
launcher=$!
seen() { find "$work" -name 'pair.*' -size +0 | wc -l; }
for ((tenths = 0; tenths < 600; ++tenths)); do
  [ "$(seen)" -lt "$pairs" ] || break
  sleep 0.1
done
touch "$work/over"
wait $launcher && complain "the launcher succeeded"
sort -V "$work"/pair.*
[ "$(seen)" -eq "$pairs" ] || complain "$(seen) of $pairs pairs came to an end"
[ "$(cat "$work"/pair.* | grep -vc '^-20 ')" -eq 0 ] || complain "another status than -20"
expect_end $((2 * pairs))

# The launcher sees the processes themselves, and ends those that are left.
timeout 60 "$mpiexec" -n 4 "$program" "$work" stay >>"$work/output" 2>&1
code=$?
[ $code -ne 0 ] && [ $code -ne 124 ] || complain "the launcher came to an end with $code"
expect_end 4

[ $failed -eq 0 ] || tail -n 40 "$work/output"
exit $failed
