# Adds tests that run as MPI jobs. The launcher of the MPI of this build tree starts them.

include_guard(DIRECTORY)

# MPI jobs of the tests start more processes than there are cores, also as root in a container.
# Open MPI allows that only with these settings; MPICH reads none of them. Bandwidth does not
# matter to the tests, so Open MPI makes no copies across memories, which containers often forbid.
set(PAVEX_MPI_ENVIRONMENT
    OMPI_ALLOW_RUN_AS_ROOT=1
    OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1
    OMPI_MCA_rmaps_base_oversubscribe=1
    OMPI_MCA_btl_vader_single_copy_mechanism=none)

# pavex_add_mpi_job(<test> <processes> <program> [<argument>...] [CHECKER <command>...]): one ctest
# that runs the target <program> on that many processes, under <command> if there is one, and
# fails if it takes more than 5 minutes. Only one such job runs at a time: two of them would wait
# for each other's cores.
function(pavex_add_mpi_job test processes program)
  cmake_parse_arguments(ARG "" "" "CHECKER" ${ARGN})
  add_test(NAME ${test}
           COMMAND ${ARG_CHECKER} ${MPIEXEC_EXECUTABLE} ${MPIEXEC_NUMPROC_FLAG} ${processes}
                   ${MPIEXEC_PREFLAGS} $<TARGET_FILE:${program}> ${MPIEXEC_POSTFLAGS}
                   ${ARG_UNPARSED_ARGUMENTS})
  add_dependencies(mpi_tests ${program})
  set_tests_properties(${test} PROPERTIES PROCESSORS ${processes} RESOURCE_LOCK mpi TIMEOUT 300
                       LABELS mpi ENVIRONMENT "${PAVEX_MPI_ENVIRONMENT}")
endfunction()

# Builds every test of label mpi and nothing else.
add_custom_target(mpi_tests)

# pavex_mpi_test(<name> PROCESSES <n>... SOURCES <file>... [LIBS <target>...] [ARGS <arg>...]
#                [NO_MAIN]):
# a GoogleTest binary over MPI, and one ctest <name>.np<n> for each process count. The binary gets
# `--np <n>` and fails if its job has another number of processes: under the launcher of another
# MPI it would run as n jobs of one. NO_MAIN: the sources have their own main.
function(pavex_mpi_test name)
  cmake_parse_arguments(ARG "NO_MAIN" "" "PROCESSES;SOURCES;LIBS;ARGS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  pavex_test_settings(${name})
  target_link_libraries(${name} PRIVATE Pavex::mpi ${ARG_LIBS} GTest::gmock GTest::gtest)
  if(NOT ARG_NO_MAIN)
    target_link_libraries(${name} PRIVATE pavex_mpi_main)
  endif()
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_precompile_headers(${name} REUSE_FROM pavex_test_headers)
  foreach(processes IN LISTS ARG_PROCESSES)
    pavex_add_mpi_job(${name}.np${processes} ${processes} ${name} --np ${processes} ${ARG_ARGS})
  endforeach()
endfunction()
