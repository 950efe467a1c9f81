# `pavex solve` as MPI jobs.

# solve_job(<name> <processes> <how> <line> <argument>...)
function(solve_job name processes how line)
  pavex_add_mpi_job(solve.${name}.np${processes} ${processes} pavex_command solve ${ARGN}
                    CHECKER ${once} ${how} ${line})
endfunction()

set(solved "aggregation: .*")
set(problem --generate convection2d:6 --steps 1)
foreach(processes 1 2 4)
  solve_job(coo ${processes} succeeds ${solved} ${problem} --partition entries)
  solve_job(csr ${processes} succeeds ${solved} ${problem} --format csr --rhs 2 --ld 3)
  solve_job(csc ${processes} succeeds ${solved} ${problem} --format csc --partition columns --to all)
  solve_job(complex ${processes} succeeds ${solved} ${problem} --format csr --value complex-double)
  solve_job(float ${processes} succeeds ${solved} ${problem} --format csr --value float)
endforeach()
solve_job(held_elsewhere 3 succeeds ${solved} ${problem} --partition one --holder 2)

# Failures that only the receiver meets, and every process has to hear of.
set(singular ${CMAKE_CURRENT_BINARY_DIR}/singular.mtx)
file(WRITE ${singular} "%%MatrixMarket matrix coordinate real general
4 4 6\n1 1 1\n1 2 1\n2 1 1\n2 2 1\n3 3 1\n4 4 1\n")
solve_job(singular 3 fails "pavex: the matrix is numerically singular: .*" ${singular})
solve_job(singular_to_all 3 fails "pavex: the matrix is numerically singular: .*"
          ${singular} --to all)
solve_job(not_square 3 fails "pavex: dense:4x3 is 4 x 3: only a square matrix can be solved"
          --generate dense:4x3)
