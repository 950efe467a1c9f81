# Finds PETSc. PAVEX_PETSC_DIRS lists the folders of installations, such as
# /usr/lib/petscdir/petsc-complex on Debian; empty: the one that pkg-config finds. Each gives a
# target Petsc::<kind> and one set of tests. <kind> is real or complex, followed by 64 for 64-bit
# indices. The first one is that of the installed plugin. PAVEX_PETSC_KINDS lists the kinds.

set(PAVEX_PETSC_DIRS "" CACHE STRING "Folders of PETSc installations; empty: that of pkg-config")

find_package(PkgConfig REQUIRED)

# pavex_find_petsc(<folder, or empty>)
function(pavex_find_petsc folder)
  if(folder)
    set(ENV{PKG_CONFIG_PATH} "${folder}/lib/pkgconfig:$ENV{PKG_CONFIG_PATH}")
  endif()
  string(MD5 name "${folder}")
  pkg_check_modules(petsc_${name} REQUIRED QUIET PETSc>=3.18)
  set(include ${petsc_${name}_INCLUDE_DIRS})
  if(NOT include)  # pkg-config leaves the folders of the system out
    pkg_get_variable(include PETSc includedir)
  endif()
  list(GET include 0 first)
  file(STRINGS ${first}/petscconf.h complex REGEX "define PETSC_USE_COMPLEX")
  file(STRINGS ${first}/petscconf.h long REGEX "define PETSC_USE_64BIT_INDICES")
  set(kind real)
  if(complex)
    set(kind complex)
  endif()
  if(long)
    string(APPEND kind 64)
  endif()
  # Without its compiler flags, which are those of its own build.
  add_library(petsc_${kind} INTERFACE)
  add_library(Petsc::${kind} ALIAS petsc_${kind})
  target_include_directories(petsc_${kind} SYSTEM INTERFACE ${include})
  target_link_libraries(petsc_${kind} INTERFACE ${petsc_${name}_LINK_LIBRARIES} MPI::MPI_CXX)
  message(STATUS "Found PETSc ${petsc_${name}_VERSION} (${kind})")
  set(PAVEX_PETSC_KINDS ${PAVEX_PETSC_KINDS} ${kind} PARENT_SCOPE)
endfunction()

set(PAVEX_PETSC_KINDS)
if(PAVEX_PETSC_DIRS)
  foreach(folder IN LISTS PAVEX_PETSC_DIRS)
    pavex_find_petsc(${folder})
  endforeach()
else()
  pavex_find_petsc("")
endif()
