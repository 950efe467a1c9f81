# Settings that every target of the project shares; no global flag is changed.

function(pavex_settings target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(PAVEX_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# pavex_fuzzed(<target>): with PAVEX_FUZZ, libFuzzer sees which code of the target an input reaches.
# That makes compiling a third slower, so only the code that fuzz targets test gets it.
function(pavex_fuzzed target)
  if(PAVEX_FUZZ)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    target_link_options(${target} INTERFACE $<BUILD_INTERFACE:-fsanitize=fuzzer-no-link>)
  endif()
endfunction()

# The number in the name that a shared library is linked by: while the major version is 0, each
# minor version may break the binary interface.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(PAVEX_ABI_VERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
else()
  set(PAVEX_ABI_VERSION ${PROJECT_VERSION_MAJOR})
endif()

# The settings of a shared library of the project. It exports only the public names. When it is
# installed, it finds the libraries that it needs in its own folder, also if the tree is moved.
set(PAVEX_EXPORT_MAP ${CMAKE_CURRENT_LIST_DIR}/pavex.map)
function(pavex_shared_settings library)
  set_target_properties(${library} PROPERTIES VERSION ${PROJECT_VERSION}
                                              SOVERSION ${PAVEX_ABI_VERSION}
                                              INSTALL_RPATH "$ORIGIN")
  get_target_property(type ${library} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    target_link_options(${library} PRIVATE LINKER:--version-script=${PAVEX_EXPORT_MAP})
    set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${PAVEX_EXPORT_MAP})
  endif()
endfunction()
