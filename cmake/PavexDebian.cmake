# What cpack makes: Debian packages of the shared libraries, of what compiling against them
# needs, and of the pavex command. Configure with -DBUILD_SHARED_LIBS=ON
# -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON -DPAVEX_UMFPACK=OFF (with UMFPACK the
# command would not be under the licence that its package states), build, and run cpack in the
# build folder. A static build has no package of libraries.

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CONTACT "Pavex maintainers <maintainers@pavex.invalid>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/pavex ${PROJECT_BINARY_DIR}/pavex/comm)
set(CPACK_COMPONENTS_ALL)

# pavex_debian_package(<component> <package> <section> <text>)
macro(pavex_debian_package component package section text)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${PROJECT_DESCRIPTION}\n${text}")
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} RENAME copyright
          COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

pavex_debian_package(development libpavex-dev libdevel
                     "Headers, link libraries, CMake and pkg-config files.")
if(BUILD_SHARED_LIBS)
  set(library_package libpavex${PAVEX_ABI_VERSION})
  set(needs_library "${library_package} (= ${PROJECT_VERSION})")
  pavex_debian_package(runtime ${library_package} libs "Shared libraries.")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${needs_library}")
endif()
if(PAVEX_TOOLS)
  pavex_debian_package(tool pavex math
                       "The pavex command gathers distributed matrices and checks the result.")
  set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${needs_library}")
endif()
include(CPack)
