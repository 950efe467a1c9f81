# Finds hypre and MUMPS, which tests and examples use: targets pavex_mumps and pavex_hypre. Both must
# have been built with the MPI of this build folder. PAVEX_HYPRE_LIBRARIES lists builds of hypre, such
# as HYPRE64 with 64-bit indices, by the names of their libraries; their headers are in the folder
# of that name in lower case. Each gives a target pavex_<name in lower case> and one set of tests.

set(PAVEX_HYPRE_LIBRARIES HYPRE CACHE STRING "Libraries of hypre to test")

function(pavex_solver name header suffix library)
  if(NOT PAVEX_MPI)
    message(FATAL_ERROR "${name} needs PAVEX_MPI=ON, with the MPI that it was built with")
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
  foreach(library IN LISTS PAVEX_HYPRE_LIBRARIES)
    string(TOLOWER ${library} folder)
    pavex_solver(${library} _hypre_parcsr_mv.h ${folder} ${library})
  endforeach()
endif()
if(PAVEX_MUMPS)
  pavex_solver(MUMPS dmumps_c.h mumps dmumps)
endif()
