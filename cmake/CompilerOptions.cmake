option(SHADERMACHINE_WERROR "Treat warnings as errors" OFF)
set(SHADERMACHINE_SANITIZE "" CACHE STRING
    "Sanitizers to build everything with, for example address,undefined")

if(SHADERMACHINE_SANITIZE)
  add_compile_options(-fsanitize=${SHADERMACHINE_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  # Programs in C cannot be linked with this check of clang.
  add_compile_options($<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
  add_link_options(-fsanitize=${SHADERMACHINE_SANITIZE})
else()
  # What Debian gives its packages. Control-flow protection is left out: the fast engine jumps
  # indirectly at every instruction.
  add_compile_options(
    $<$<CONFIG:Release>:-fstack-protector-strong>
    $<$<CONFIG:Release>:-fstack-clash-protection>
    $<$<CONFIG:Release>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

if(SHADERMACHINE_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Warnings for every target of the project; call once per target.
function(shadermachine_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    -Wcast-align -Wformat=2 -Wundef $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
  # g++ 12 warns of overlapping copies inside std::string's operator+, where there are none.
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
  if(SHADERMACHINE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
