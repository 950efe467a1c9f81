# Tests the pavex command with launchers of MPI jobs. A build without MPI must refuse them.

include(${PROJECT_SOURCE_DIR}/cmake/PavexMpiTest.cmake)

set(once bash ${CMAKE_CURRENT_SOURCE_DIR}/once.sh)
set(verified "verified: every entry is that of the input.*")
set(pavex $<TARGET_FILE:pavex_command>)

# A launcher announces a job, but the command is alone in it. It must not do the work once for each
# process, and only one process may print.
set(alone "announces a job of 3 processes, but this process finds itself alone, .*")
foreach(variable OMPI_COMM_WORLD PMI)
  add_test(NAME command.announced.${variable}
           COMMAND ${once} fails "pavex: ${variable}_SIZE ${alone}"
                   env ${variable}_SIZE=3 ${variable}_RANK=0 ${pavex} gather --generate poisson3d:3)
  add_test(NAME command.announced.${variable}.overridden
           COMMAND ${once} succeeds ${verified}
                   env ${variable}_SIZE=3 ${variable}_RANK=1
                   ${pavex} gather --generate poisson3d:3 --comm local)
  set_tests_properties(command.announced.${variable} command.announced.${variable}.overridden
                       PROPERTIES LABELS "tools;mpi")
endforeach()

# A job of one that an outer launcher announces does not hide the larger one.
add_test(NAME command.announced.by_two_launchers
         COMMAND ${once} fails "pavex: .*_SIZE ${alone}"
                 env OMPI_COMM_WORLD_SIZE=1 OMPI_COMM_WORLD_RANK=0 PMI_SIZE=3 PMI_RANK=0
                 ${pavex} gather --generate poisson3d:3)
set_tests_properties(command.announced.by_two_launchers PROPERTIES LABELS "tools;mpi")

foreach(launcher mpiexec.openmpi mpiexec.mpich)
  find_program(PAVEX_${launcher} ${launcher})
  if(NOT PAVEX_${launcher} OR (PAVEX_MPI AND PAVEX_${launcher} STREQUAL MPIEXEC_EXECUTABLE))
    continue()
  endif()
  add_test(NAME command.foreign.${launcher}
           COMMAND ${once} fails "pavex: .*_SIZE ${alone}"
                   ${PAVEX_${launcher}} -n 3 ${pavex} gather --generate poisson3d:3)
  set_tests_properties(command.foreign.${launcher} PROPERTIES
                       LABELS "tools;mpi" RESOURCE_LOCK mpi TIMEOUT 300
                       ENVIRONMENT "${PAVEX_MPI_ENVIRONMENT}")
endforeach()

if(NOT PAVEX_MPI)
  add_test(NAME command.comm_mpi_without_mpi
           COMMAND ${once} fails "pavex: --comm mpi: this pavex was built without MPI, .*"
                   ${pavex} gather --generate poisson3d:3 --comm mpi)
  set_tests_properties(command.comm_mpi_without_mpi PROPERTIES LABELS tools)
  return()
endif()

# command_job(<name> <processes> <how> <line> <argument>...)
function(command_job name processes how line)
  pavex_add_mpi_job(command.${name}.np${processes} ${processes} pavex_command gather ${ARGN}
                    CHECKER ${once} ${how} ${line})
endfunction()

# 7 x 7, symmetric; the file has 13 entries, the matrix 19.
set(file ${CMAKE_CURRENT_BINARY_DIR}/symmetric.mtx)
file(WRITE ${file} "%%MatrixMarket matrix coordinate real symmetric
7 7 13
1 1 1.5\n2 2 2.5\n3 3 3.5\n4 4 4.5\n5 5 5.5\n6 6 6.5\n7 7 7.5
2 1 -1\n4 3 -2\n5 1 -3\n6 2 -4\n7 5 -5\n7 6 -6\n")

set(generated --generate convection3d:5)
foreach(processes 1 2 4)
  command_job(coo.rows ${processes} succeeds ${verified} ${generated} --updates 2)
  command_job(coo.entries ${processes} succeeds ${verified} ${generated} --partition entries)
  command_job(csr ${processes} succeeds ${verified} ${generated} --format csr --updates 2 --to all)
  command_job(csc ${processes} succeeds ${verified} ${generated} --format csc --partition columns)
  command_job(dense_row ${processes} succeeds ${verified}
              --generate dense:9x5 --format dense-row --updates 1 --scatter)
  command_job(dense_col ${processes} succeeds ${verified}
              --generate dense:9x5 --format dense-col --ld 3 --partition columns --scatter --to all)
  command_job(whole ${processes} succeeds ${verified} ${generated} --format csr --partition all)
  command_job(file.entries ${processes} succeeds ${verified} ${file} --partition entries)
  command_job(file.csr ${processes} succeeds ${verified} ${file} --format csr --updates 1)
  command_job(file.dense ${processes} succeeds ${verified} ${file} --format dense-row --scatter)
  command_job(over_mpi ${processes} succeeds
              "coo of double with int indices, cut by rows, gathered on rank 0, over MPI"
              ${generated} --comm mpi)
  command_job(csr.mpi_alone ${processes} succeeds ${verified} ${generated} --format csr --to all
              --comm mpi)
endforeach()
set(shared "csr of double with int indices, cut by rows, gathered on rank 0, over MPI with shared memory")
command_job(over_shared_memory 2 succeeds ${shared} ${generated} --format csr --comm node)
command_job(over_shared_memory.by_default 3 succeeds ${shared} ${generated} --format csr)
command_job(receiver.few_rows 4 succeeds ${verified} --generate dense:2x2 --receiver 2 --updates 1)
command_job(overlap 3 succeeds ${verified} ${generated} --format csr --partition overlap --receiver 1)
command_job(held_elsewhere 4 succeeds ${verified} ${file} --partition one --holder 2)
command_job(ranks 2 succeeds ${verified} ${generated} --ranks 2)
command_job(local 1 succeeds "coo of double with int indices, cut by rows, gathered on rank 0"
            ${generated} --comm local --ranks 4)

# Failures that all processes have.
command_job(bad_option 3 fails "pavex: unknown option .--bad.. see .*" --bad)
command_job(bad_ranks 3 fails "pavex: --ranks 2 in an MPI job whose size is 3: .*"
            ${generated} --ranks 2)
command_job(no_file 3 fails "pavex: absent.mtx: .*" absent.mtx)
command_job(too_many 4 fails "pavex: 4 ranks cannot share 2 rows .*" --generate dense:2x2)

# Failures of one process that the others cannot know: on rank 0 at the end, and on rank 1 while
# rank 0 waits for it.
command_job(no_output 3 fails "pavex: absent/whole.mtx: .*" ${generated} --output absent/whole.mtx)
command_job(one_without_file 1 fails "pavex: absent.mtx: .*"
            ${file} : ${MPIEXEC_NUMPROC_FLAG} 1 ${pavex} gather absent.mtx)

# Only rank 0 draws, so only rank 0 finds out that it cannot.
if(PAVEX_CAIRO)
  command_job(plot 3 succeeds ${verified} ${generated} --partition entries
              --plot ${CMAKE_CURRENT_BINARY_DIR}/pattern.svg)
  command_job(no_plot 3 fails "pavex: absent/a.png: cannot be written: .*"
              ${generated} --plot absent/a.png)
endif()
