# Whether the calls that end a record's handler become jumps: compiles a few handlers to assembly, as
# the library is compiled, and looks. Where they stay calls the engine must return to a loop instead,
# or long runs overflow the host's stack.
function(shadermachine_has_tail_calls result configuration options)
  string(TOUPPER "${configuration}" suffix)
  string(APPEND CMAKE_CXX_FLAGS " ${CMAKE_CXX_FLAGS_${suffix}}")
  set(CMAKE_TRY_COMPILE_CONFIGURATION Debug)
  set(CMAKE_CXX_FLAGS_DEBUG "")
  get_directory_property(directory_options COMPILE_OPTIONS)
  string(GENEX_STRIP "${directory_options}" directory_options)
  set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
  set(assembly ${CMAKE_CURRENT_BINARY_DIR}/tail_calls.s)
  try_compile(compiled ${CMAKE_CURRENT_BINARY_DIR}/tail_calls
    SOURCES ${PROJECT_SOURCE_DIR}/cmake/tail_calls.cpp
    CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${PROJECT_SOURCE_DIR}/include;${PROJECT_SOURCE_DIR}/src"
    COMPILE_DEFINITIONS ${directory_options} ${options} -DSHADERMACHINE_TAIL_CALLS -fno-lto -S
    CXX_STANDARD 20
    COPY_FILE ${assembly} COPY_FILE_ERROR ignored)
  if(compiled)
    # Through a register or a record's field. What goes through a table of the linker is no handler.
    file(STRINGS ${assembly} calls REGEX "^[ \t]*(callq?[ \t]+\\*.*[^p]\\)?$|blr[ \t])")
    file(STRINGS ${assembly} jumps REGEX "^[ \t]*(notrack[ \t]+)?(jmpq?[ \t]+\\*|br[ \t])")
    list(LENGTH jumps jump_count)
  endif()
  if(compiled AND NOT calls AND jump_count EQUAL 3)
    set(${result} ON PARENT_SCOPE)
  else()
    set(${result} OFF PARENT_SCOPE)
  endif()
endfunction()

# Sets SHADERMACHINE_TAIL_CALLS to the configurations for which it is so.
function(shadermachine_find_tail_calls options)
  set(configurations ${CMAKE_CONFIGURATION_TYPES})
  if(NOT configurations)
    set(configurations ${CMAKE_BUILD_TYPE})
  endif()
  if(NOT configurations)
    set(configurations None)
  endif()
  set(found "")
  foreach(configuration IN LISTS configurations)
    shadermachine_has_tail_calls(has_tail_calls ${configuration} "${options}")
    if(has_tail_calls)
      list(APPEND found ${configuration})
    else()
      message(STATUS "The compiler makes no jumps of tail calls (${configuration}): "
                     "the engine returns to a loop, which is slower")
    endif()
  endforeach()
  set(SHADERMACHINE_TAIL_CALLS "${found}" PARENT_SCOPE)
endfunction()
