#!/usr/bin/env bash
# other_numbers_test.sh PLUGIN LINEAR LAUNCHER...: a program whose PETSc has other numbers than that of the
# plugin ends with an error that says so, and does not print a wrong solution.
set -uo pipefail
plugin=$1 linear=$2
shift 2

output=$("$@" 2 "$linear" -dll_append "$plugin" -pc_type pavex 2>&1) &&
  { echo "The program succeeds:"; echo "$output"; exit 1; }
grep -q '^step ' <<<"$output" && { echo "The program solves:"; echo "$output"; exit 1; }
numbers='((real|complex) numbers of [0-9]+)( bytes)? and indices of ([0-9]+)( bytes)?'
said="The PETSc of the program has $numbers, that of the Pavex plugin $numbers; build the plugin with"
[[ $output =~ $said ]] || { echo "$output"; exit 1; }
program="${BASH_REMATCH[1]}, ${BASH_REMATCH[4]}" own="${BASH_REMATCH[6]}, ${BASH_REMATCH[9]}"
echo "the program has $program; the plugin $own"
[ "$program" != "$own" ]
