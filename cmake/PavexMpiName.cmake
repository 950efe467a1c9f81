# pavex_mpi_name(<variable>): the MPI that find_package(MPI) found, "Open MPI" or "MPICH", by the
# macros of its mpi.h; empty for any other one. Code that is compiled for one of the two does not
# link with the other. MPIs that share the binary interface of MPICH count as MPICH.
function(pavex_mpi_name variable)
  list(TRANSFORM MPI_CXX_INCLUDE_DIRS PREPEND -I OUTPUT_VARIABLE includes)
  list(TRANSFORM MPI_CXX_COMPILE_DEFINITIONS PREPEND -D OUTPUT_VARIABLE definitions)
  execute_process(
    COMMAND ${CMAKE_CXX_COMPILER} ${MPI_CXX_COMPILE_OPTIONS} ${includes} ${definitions}
            -E -dM -include mpi.h -x c++ /dev/null
    OUTPUT_VARIABLE macros ERROR_QUIET)
  if(macros MATCHES "#define OMPI_MAJOR_VERSION ")
    set(${variable} "Open MPI" PARENT_SCOPE)
  elseif(macros MATCHES "#define (MPICH_VERSION|I_MPI_VERSION) ")
    set(${variable} "MPICH" PARENT_SCOPE)
  else()
    set(${variable} "" PARENT_SCOPE)
  endif()
endfunction()
