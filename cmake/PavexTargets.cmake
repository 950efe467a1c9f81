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
# Compiling for that takes a third of the time again: only what fuzz targets are about gets it.
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

# What a library of the project is as a shared one: it exports the public names alone, and once
# installed it finds the libraries that it needs beside itself, wherever the tree is moved to.
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
