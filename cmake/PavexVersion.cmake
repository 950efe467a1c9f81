# Sets PAVEX_VERSION to the version that the headers state, for project().

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${CMAKE_CURRENT_LIST_DIR}/../pavex/runtime/version.h)
file(READ ${CMAKE_CURRENT_LIST_DIR}/../pavex/runtime/version.h header)
set(PAVEX_VERSION)
foreach(part MAJOR MINOR PATCH)
  if(NOT header MATCHES "#define PAVEX_VERSION_${part} ([0-9]+)\n")
    message(FATAL_ERROR "pavex/runtime/version.h does not define PAVEX_VERSION_${part}")
  endif()
  list(APPEND PAVEX_VERSION ${CMAKE_MATCH_1})
endforeach()
list(JOIN PAVEX_VERSION "." PAVEX_VERSION)
unset(header)
