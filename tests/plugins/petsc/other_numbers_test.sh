#!/usr/bin/env bash
# other_numbers_test.sh PLUGIN LINEAR LAUNCHER...: a program whose PETSc has other numbers than that of the
# plugin ends with an error that says so, and does not print a wrong solution.
set -uo pipefail
plugin=$1 linear=$2
shift 2

output=$("$@" 2 "$linear" -dll_append "$plugin" -pc_type pavex 2>&1) &&
  { echo "The program succeeds:"; echo "$output"; exit 1; }
grep -q '^step ' <<<"$output" && { echo "The program solves:"; echo "$output"; exit 1; }
grep -E 'build the plugin with the PETSc of the program' <<<"$output" || { echo "$output"; exit 1; }
