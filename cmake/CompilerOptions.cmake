include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
option(SHADERMACHINE_WERROR "Treat warnings as errors" OFF)
set(SHADERMACHINE_SANITIZE "" CACHE STRING
    "Sanitizers to build everything with, for example address,undefined")

# Not every system's linker knows these.
function(shadermachine_link_option target name option)
  check_linker_flag(CXX "${option}" SHADERMACHINE_LINKS_WITH_${name})
  if(SHADERMACHINE_LINKS_WITH_${name})
    target_link_options(${target} PRIVATE "${option}")
  endif()
endfunction()

if(SHADERMACHINE_SANITIZE)
  add_compile_options(-fsanitize=${SHADERMACHINE_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  # Programs in C cannot be linked with this check of clang.
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    add_compile_options(-fno-sanitize=function)
  endif()
  add_link_options(-fsanitize=${SHADERMACHINE_SANITIZE})
elseif(NOT WIN32 AND NOT "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "_FORTIFY_SOURCE")
  # What Debian gives its packages, unless whoever builds gives as much. Control-flow protection is
  # left out: the fast engine jumps indirectly at every instruction.
  set(hardening -fstack-protector-strong)
  check_cxx_compiler_flag("-Werror -fstack-clash-protection" SHADERMACHINE_HAS_STACK_CLASH_PROTECTION)
  if(SHADERMACHINE_HAS_STACK_CLASH_PROTECTION)
    list(APPEND hardening -fstack-clash-protection)
  endif()
  list(APPEND hardening -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  add_compile_options("$<$<CONFIG:Release>:${hardening}>")
  check_linker_flag(CXX "-Wl,-z,relro,-z,now,-z,noexecstack" SHADERMACHINE_LINKS_WITH_Z_OPTIONS)
  if(SHADERMACHINE_LINKS_WITH_Z_OPTIONS)
    add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
  endif()
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
