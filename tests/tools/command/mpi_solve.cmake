# Tests `pavex solve` as MPI jobs.

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

# Each process keeps its own part of both files. The solution is 1 2 3 4; the test checks one line.
set(diagonal ${CMAKE_CURRENT_BINARY_DIR}/diagonal.mtx)
file(WRITE ${diagonal} "%%MatrixMarket matrix coordinate real general
4 4 4\n1 1 2\n2 2 4\n3 3 5\n4 4 10\n")
set(right ${CMAKE_CURRENT_BINARY_DIR}/right.mtx)
file(WRITE ${right} "%%MatrixMarket matrix array real general\n4 1\n2\n8\n15\n40\n")
foreach(cut rows columns entries one all)
  solve_job(files.${cut} 3 succeeds "3 0" ${diagonal} --rhs-file ${right} --partition ${cut}
            --value complex-double --output /dev/stdout)
endforeach()
solve_job(files.to_all 3 succeeds "3 0" ${diagonal} --rhs-file ${right} --partition one --holder 1
          --value complex-double --to all --output /dev/stdout)

# Failures that only the receiver meets, and that must reach every process.
set(singular ${CMAKE_CURRENT_BINARY_DIR}/singular.mtx)
file(WRITE ${singular} "%%MatrixMarket matrix coordinate real general
4 4 6\n1 1 1\n1 2 1\n2 1 1\n2 2 1\n3 3 1\n4 4 1\n")
solve_job(singular 3 fails "pavex: the matrix is numerically singular: .*" ${singular})
solve_job(singular_to_all 3 fails "pavex: the matrix is numerically singular: .*"
          ${singular} --to all)
solve_job(not_square 3 fails "pavex: dense:4x3 is 4 x 3: only a square matrix can be solved"
          --generate dense:4x3)
