# Finds hypre and MUMPS, which tests and examples use: targets pavex_hypre and pavex_mumps. Both must
# have been built with the MPI of this build folder.

function(pavex_solver name header suffix library)
  if(NOT PAVEX_MPI)
    message(FATAL_ERROR "PAVEX_${name} needs PAVEX_MPI=ON, with the MPI that ${name} was built with")
  endif()
  find_path(PAVEX_${name}_INCLUDE_DIR ${header} PATH_SUFFIXES ${suffix} REQUIRED)
  find_library(PAVEX_${name}_LIBRARY ${library} REQUIRED)
  mark_as_advanced(PAVEX_${name}_INCLUDE_DIR PAVEX_${name}_LIBRARY)
  string(TOLOWER pavex_${name} target)
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${PAVEX_${name}_INCLUDE_DIR})
  target_link_libraries(${target} INTERFACE ${PAVEX_${name}_LIBRARY} MPI::MPI_CXX)
endfunction()

if(PAVEX_HYPRE)
  pavex_solver(HYPRE _hypre_parcsr_mv.h hypre HYPRE)
endif()
if(PAVEX_MUMPS)
  pavex_solver(MUMPS dmumps_c.h mumps dmumps)
endif()
