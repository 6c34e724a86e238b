option(SHADERMACHINE_WERROR "Treat warnings as errors" OFF)

# Warnings for every target of the project; call once per target.
function(shadermachine_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    -Wcast-align -Wformat=2 -Wundef $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
  if(SHADERMACHINE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
