#!/usr/bin/env bash
# plugin_test.sh PLUGIN LINEAR NONLINEAR LAUNCHER...: programs that know nothing of the plugin use it
# by options. Each run must succeed, leave no memory of PETSc and no option unread, and print what is
# expected.
set -uo pipefail
plugin=$1 linear=$2 nonlinear=$3
shift 3
launcher=("$@")
runs=0 faults=0

# run PROCESSES PROGRAM OPTION...: the output in $output.
run() {
  local processes=$1
  shift
  runs=$((runs + 1))
  output=$("${launcher[@]}" "$processes" "$@" 2>&1)
}
fault() {
  echo "$1"
  echo "$output" | tail -n 25
  faults=$((faults + 1))
}
# solves PROCESSES OPTION...: three steps, with a residual of PETSc's of at most 1e-12 in each.
solves() {
  local processes=$1
  shift
  run "$processes" "$linear" -dll_append "$plugin" -malloc_debug -malloc_dump -options_left "$@" ||
    fault "$processes processes fail with $*"
  [ "$(grep -c '^step [0-9]: residual' <<<"$output")" = 3 ] || fault "not three steps with $*"
  ! grep -qE ' [0-9]+ bytes [A-Za-z_]+\(\) at ' <<<"$output" || fault "memory is left with $*"
  grep -q 'There are no unused options' <<<"$output" || fault "unread options with $*"
}
# shows TEXT PROCESSES PROGRAM OPTION...
shows() {
  local text=$1
  shift
  run "$@" -dll_append "$plugin" || fault "failure of ${*:2}"
  grep -qE "$text" <<<"$output" || fault "${*:2} does not show $text"
}
# same PROCESSES PROGRAM PATTERN OPTIONS OPTIONS: the lines of the pattern are the same, letter by
# letter, without and with the plugin.
same() {
  local lines
  run "$1" "$2" $4 || fault "failure of $4"
  lines=$(grep "$3" <<<"$output")
  run "$1" "$2" -dll_append "$plugin" $5 || fault "failure of $5"
  [ -n "$lines" ] && [ "$lines" = "$(grep "$3" <<<"$output")" ] || fault "$5 gives other numbers than $4: $lines"
}

pc=(-pc_type pavex)
lu=(-pc_type lu -pc_factor_mat_solver_type pavex)
for processes in 1 2 3 4; do
  solves $processes "${pc[@]}"
  solves $processes "${lu[@]}"
done
solves 3 "${pc[@]}" -empty
solves 4 "${lu[@]}" -empty -transpose
solves 2 "${pc[@]}" -baij
solves 3 "${lu[@]}" -baij -mat_pavex_solver_type umfpack
solves 4 "${pc[@]}" -transpose -pavex_pc_type lu -pavex_pc_factor_mat_solver_type petsc
solves 3 "${pc[@]}" -columns 3 -ksp_type preonly
solves 2 "${lu[@]}" -columns 3 -ksp_type preonly -empty
solves 3 "${pc[@]}" -pavex_receiver 2
solves 4 "${lu[@]}" -pavex_receiver 1 -empty -columns 2 -ksp_type preonly
solves 2 "${pc[@]}" -pavex_node
solves 3 -ksp_rtol 1e-13 -pc_type fieldsplit -pc_fieldsplit_block_size 2 -fieldsplit_0_pc_type pavex \
  -fieldsplit_1_pc_type lu -fieldsplit_1_pc_factor_mat_solver_type pavex

# The same incomplete factorisation on one process: the same history of residuals.
same 3 "$linear" 'Residual norm' '-tolerance 1 -ksp_monitor -pc_type redundant -redundant_pc_type ilu' \
  '-tolerance 1 -ksp_monitor -pc_type pavex -pavex_pc_type ilu'
ilu='-snes_monitor -ksp_monitor -pc_type'
same 2 "$nonlinear" 'norm' "$ilu redundant -redundant_pc_type ilu" "$ilu pavex -pavex_pc_type ilu"
# As the coarse solver of multigrid.
mg="$ilu mg -pc_mg_levels 2 -pc_mg_galerkin both -mg_coarse_pc_type"
same 4 "$nonlinear" 'steps' "$mg redundant" "$mg pavex"

shows '144 rows gathered on process 0' 2 "$linear" "${pc[@]}" -ksp_view
shows '144 rows gathered on process 1' 2 "$linear" "${lu[@]}" -pavex_view -pavex_receiver 1
shows '^PavexUpdate +2' 2 "$linear" "${pc[@]}" -log_view

# What fails on one process is an error of PETSc on each of them.
shows 'errors on 3 processes' 3 "$linear" -errors "${lu[@]}" -mat_pavex_solver_type nonsense
shows 'errors on 2 processes' 2 "$linear" -errors "${pc[@]}" -pavex_receiver 2
shows 'errors on 3 processes' 3 "$linear" -errors "${pc[@]}" -singular -ksp_error_if_not_converged

echo "$runs runs, $faults faults"
[ $runs -gt 30 ] && [ $faults -eq 0 ]
