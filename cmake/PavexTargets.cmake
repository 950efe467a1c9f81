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
