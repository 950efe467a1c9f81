#!/usr/bin/env bash
# plugin_test.sh EXTENT PLUGIN LINEAR NONLINEAR GRID LAUNCHER...: programs that know nothing of the plugin
# use it by options. Each run must succeed, leave no memory of PETSc, and print what is expected.
# EXTENT is all, or few: what depends on the values, which may be complex.
set -uo pipefail
extent=$1 plugin=$2 linear=$3 nonlinear=$4 grid=$5
shift 5
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
# Checks that the last run left no memory: with -malloc_dump PETSc lists what it has not got back.
left_nothing() {
  ! grep -qE ' [0-9]+ bytes [A-Za-z_]+\(\) at ' <<<"$output" || fault "memory is left with $*"
}
# solves PROCESSES OPTION...: three steps, with a residual of PETSc's of at most 1e-12 in each, and no
# option unread.
solves() {
  local processes=$1
  shift
  run "$processes" "$linear" -dll_append "$plugin" -malloc_debug -malloc_dump -options_left "$@" ||
    fault "$processes processes fail with $*"
  [ "$(grep -c '^step [0-9]: residual' <<<"$output")" = 3 ] || fault "not three steps with $*"
  left_nothing "$@"
  grep -q 'There are no unused options' <<<"$output" || fault "unread options with $*"
}
# shows TEXT PROCESSES PROGRAM OPTION...
shows() {
  local text=$1
  shift
  run "$@" -dll_append "$plugin" -malloc_debug -malloc_dump || fault "failure of ${*:2}"
  [[ " $* " = *' -errors '* ]] || left_nothing "$@"
  grep -qE "$text" <<<"$output" || fault "${*:2} does not show $text"
}
# same PROCESSES PROGRAM PATTERN OPTIONS OPTIONS: the lines of the pattern are the same, letter by
# letter, without and with the plugin.
same() {
  local lines
  run "$1" "$2" $4 || fault "failure of $4"
  lines=$(grep "$3" <<<"$output")
  run "$1" "$2" -dll_append "$plugin" -malloc_debug -malloc_dump $5 || fault "failure of $5"
  left_nothing "$5"
  [ -n "$lines" ] && [ "$lines" = "$(grep "$3" <<<"$output")" ] || fault "$5 gives other numbers than $4: $lines"
}

finish() {
  echo "$runs runs, $faults faults"
  [ "$runs" -ge "$1" ] && [ $faults -eq 0 ]
  exit
}

pc=(-pc_type pavex)
lu=(-pc_type lu -pc_factor_mat_solver_type pavex)
ilu='-snes_monitor -ksp_monitor -pc_type'
solves 1 "${pc[@]}"
solves 3 "${lu[@]}" -empty -transpose
solves 4 "${pc[@]}" -transpose -pavex_pc_type lu -pavex_pc_factor_mat_solver_type petsc
solves 2 "${lu[@]}" -columns 3 -ksp_type preonly -empty
solves 3 "${pc[@]}" -columns 3 -ksp_type preonly -pavex_receiver 2
solves 3 "${lu[@]}" -pavex_node -pavex_receiver 2 -transpose
solves 3 -pc_type cholesky -pc_factor_mat_solver_type pavex -symmetric
solves 2 "${lu[@]}" -baij -mat_pavex_solver_type umfpack
# Solvers that overwrite their matrix or right-hand side, which one process could take from the program.
solves 1 "${pc[@]}" -ksp_rtol 1e-14 -pavex_pc_type ilu -pavex_pc_factor_in_place
solves 1 "${pc[@]}" -pavex_ksp_diagonal_scale
same 2 "$nonlinear" 'norm' "$ilu redundant -redundant_pc_type ilu" "$ilu pavex -pavex_pc_type ilu"
shows 'errors on 3 processes' 3 "$linear" -errors "${pc[@]}" -singular -ksp_error_if_not_converged
[ "$extent" = all ] || finish 12

for processes in 2 3 4; do
  solves $processes "${pc[@]}"
  solves $processes "${lu[@]}"
done
solves 3 "${pc[@]}" -empty
solves 2 "${pc[@]}" -baij
solves 3 "${pc[@]}" -columns 3 -ksp_type preonly
solves 3 "${pc[@]}" -pavex_receiver 2
solves 4 "${lu[@]}" -pavex_receiver 1 -empty -columns 2 -ksp_type preonly
solves 2 "${pc[@]}" -pavex_node
solves 3 "${pc[@]}" -pavex_receiver 0 -empty  # which owns no rows itself
solves 4 "${lu[@]}" -pavex_receiver 3 -baij -mat_pavex_solver_type petsc
solves 1 -pc_type cholesky -pc_factor_mat_solver_type pavex -symmetric
solves 2 -pc_type cholesky -pc_factor_mat_solver_type pavex -symmetric -transpose -pavex_receiver 1
# Options of the solver on the receiver, whose name follows that of the solver around it.
solves 2 "${pc[@]}" -ksp_rtol 1e-14 -pavex_ksp_type gmres -pavex_ksp_rtol 1e-10 -pavex_pc_type ilu
solves 3 "${lu[@]}" -ksp_rtol 1e-14 -mat_pavex_ksp_type gmres -mat_pavex_ksp_rtol 1e-10 \
  -mat_pavex_pc_type ilu -mat_pavex_pc_factor_levels 1
solves 3 -ksp_rtol 1e-14 -pc_type fieldsplit -pc_fieldsplit_block_size 2 -fieldsplit_0_pc_type pavex \
  -fieldsplit_0_pavex_pc_type ilu -fieldsplit_1_pavex_receiver 2 -fieldsplit_1_pc_type lu \
  -fieldsplit_1_pc_factor_mat_solver_type pavex -fieldsplit_1_mat_pavex_solver_type petsc
solves 1 "${pc[@]}" -pavex_ksp_diagonal_scale -pavex_ksp_type gmres -columns 3 -ksp_type preonly
solves 2 "${pc[@]}" -pavex_ksp_diagonal_scale -transpose
solves 3 "${lu[@]}" -ksp_rtol 1e-14 -mat_pavex_pc_type ilu -mat_pavex_pc_factor_in_place
solves 3 "${pc[@]}" -ksp_rtol 1e-14 -pavex_pc_type ilu -pavex_pc_factor_in_place -pavex_receiver 0

# The same incomplete factorisation on one process: the same history of residuals.
same 3 "$linear" 'Residual norm' '-tolerance 1 -ksp_monitor -pc_type redundant -redundant_pc_type ilu' \
  '-tolerance 1 -ksp_monitor -pc_type pavex -pavex_pc_type ilu'
same 3 "$nonlinear" 'steps' '-dm_mat_type baij -pc_type redundant' '-dm_mat_type baij -pc_type pavex'
same 3 "$grid" 'norm' '-ksp_monitor -pc_type redundant -redundant_pc_type ilu' \
  '-ksp_monitor -pc_type pavex -pavex_pc_type ilu'
# As the coarse solver of multigrid.
mg='-pc_type mg -pc_mg_levels 2 -pc_mg_galerkin both -mg_coarse_pc_type'
same 4 "$nonlinear" 'steps' "-snes_monitor $mg redundant" "-snes_monitor $mg pavex"
sor='-ksp_monitor -pc_type mg -pc_mg_levels 3 -mg_coarse_pc_type'
same 2 "$grid" 'norm' "$sor redundant -mg_coarse_redundant_pc_type ilu" \
  "$sor pavex -mg_coarse_pavex_pc_type ilu"
shows '20 rows gathered on process 1' 2 "$grid" $sor pavex -mg_coarse_pavex_view \
  -mg_coarse_pavex_pc_type ilu -mg_coarse_pavex_receiver 1

shows '144 rows gathered on process 0' 2 "$linear" "${pc[@]}" -ksp_view
shows '144 rows gathered on process 1' 3 "$linear" "${lu[@]}" -pavex_view -empty
shows '144 rows gathered on process 1' 2 "$linear" "${lu[@]}" -pavex_view -pavex_receiver 1
shows '^ +type: cholesky' 2 "$linear" -pc_type cholesky -pc_factor_mat_solver_type pavex -symmetric \
  -pavex_view
shows 'package used to perform factorization: petsc' 2 "$linear" "${lu[@]}" -pavex_view \
  -mat_pavex_solver_type petsc
shows '^ +type: jacobi' 2 "$linear" "${lu[@]}" -pavex_view -mat_pavex_pc_type jacobi -tolerance 1
shows 'puts this plugin under the GPL 3' 1 "$linear" "${pc[@]}" -help
shows '^PavexUpdate +2' 2 "$linear" "${pc[@]}" -log_view
for event in Merge Gather Vector Scatter; do
  grep -qE "^Pavex$event +[1-9]" <<<"$output" || fault "-log_view does not show Pavex$event"
done

# New values arrive in the same arrays, so their structure is analysed once.
shows '^MatLUFactorSym +1 ' 2 "$linear" "${pc[@]}" -log_view -steps 5
shows '^MatLUFactorSym +1 ' 3 "$linear" "${pc[@]}" -log_view -steps 5 -pavex_receiver 1

# What fails on one process is an error of PETSc on each of them.
shows 'errors on 3 processes' 3 "$linear" -errors "${lu[@]}" -mat_pavex_solver_type nonsense
shows 'errors on 2 processes' 2 "$linear" -errors "${pc[@]}" -pavex_receiver 2
shows 'errors on 3 processes' 3 "$linear" -errors "${lu[@]}" -columns 2 -moved

finish 57
