# Says what cmake --install installs where. The installed tree can be moved, because every path in
# it is relative.
# Components: runtime (shared libraries), development (headers, link libraries, package files,
# documents), tool (the pavex command), plugin (for PETSc).

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Pavex)
file(RELATIVE_PATH pkg_config_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pkg_config_prefix ${pkg_config_prefix})

# pavex_install_library(<target> <export> <pkg-config name>): a library with its headers, its
# CMake targets and its pkg-config file.
function(pavex_install_library target export pkg_config)
  install(TARGETS ${target} EXPORT ${export}
          LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
          ARCHIVE COMPONENT development
          FILE_SET HEADERS COMPONENT development)
  install(EXPORT ${export} NAMESPACE Pavex:: DESTINATION ${package_dir} COMPONENT development)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pkg_config}.pc.in ${pkg_config}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pkg_config}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# pavex_mpi_wrapper(<variable>): the compiler wrapper of the MPI that was found. Links are
# followed, because a change of the system's default MPI changes where they lead.
function(pavex_mpi_wrapper variable)
  # In a folder that was configured before, the variable is the name on the command line.
  find_program(found_wrapper NAMES "${MPI_CXX_COMPILER}" NO_CACHE)
  set(wrapper "${found_wrapper}")
  while(IS_SYMLINK "${wrapper}")
    cmake_path(GET wrapper PARENT_PATH folder)
    file(READ_SYMLINK "${wrapper}" next)
    cmake_path(ABSOLUTE_PATH next BASE_DIRECTORY "${folder}" NORMALIZE)
    cmake_path(GET next FILENAME name)
    if(NOT name MATCHES "^mpi")
      break()
    endif()
    set(wrapper "${next}")
  endwhile()
  set(${variable} "${wrapper}" PARENT_SCOPE)
endfunction()

pavex_install_library(pavex PavexTargets pavex)
pavex_install_library(pavex_local PavexLocalTargets pavex-local)
if(PAVEX_MPI)
  list(TRANSFORM MPI_CXX_INCLUDE_DIRS PREPEND -I OUTPUT_VARIABLE mpi_cflags)
  list(JOIN mpi_cflags " " mpi_cflags)
  list(JOIN MPI_CXX_LIBRARIES " " mpi_libs)
  pavex_install_library(pavex_mpi PavexMpiTargets pavex-mpi)
  install(FILES cmake/PavexMpiName.cmake DESTINATION ${package_dir} COMPONENT development)
  include(cmake/PavexMpiName.cmake)
  pavex_mpi_name(mpi_name)
  pavex_mpi_wrapper(mpi_wrapper)
endif()

configure_package_config_file(cmake/PavexConfig.cmake.in PavexConfig.cmake
                              INSTALL_DESTINATION ${package_dir}
                              NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# From 1.0 on: SameMajorVersion, as the name of the shared library says.
write_basic_package_version_file(PavexConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/PavexConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/PavexConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The documents and the examples have the same places relative to each other as in the sources, so
# that links between them work.
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/pavex)
install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md
        DESTINATION ${doc_dir} COMPONENT development)
install(DIRECTORY docs examples DESTINATION ${doc_dir} COMPONENT development
        FILES_MATCHING PATTERN "*.md" PATTERN "*.cpp" PATTERN docs/man EXCLUDE)

if(PAVEX_PETSC)
  install(TARGETS pavex_petsc LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT plugin)
  install(FILES plugins/petsc/petscpavex.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT plugin)
endif()
if(PAVEX_TOOLS)
  file(RELATIVE_PATH tool_to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(pavex_command PROPERTIES INSTALL_RPATH "$ORIGIN/${tool_to_libraries}")
  install(TARGETS pavex_command RUNTIME COMPONENT tool)
  install(FILES docs/man/pavex.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  install(FILES tools/command/completion/pavex.bash RENAME pavex
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
endif()

if(PROJECT_IS_TOP_LEVEL)
  include(cmake/PavexDebian.cmake)
endif()
