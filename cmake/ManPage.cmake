# Makes shadermachine.1 out of the program's help texts, which are kept (and tested) as files.
set(help_dir ${PROJECT_SOURCE_DIR}/tests/golden/help)
set(man_page ".TH SHADERMACHINE 1 \"\" \"shadermachine ${PROJECT_VERSION}\" \"User Commands\"
.SH NAME
shadermachine \\- assembles, checks, runs and renders shader programs on the CPU
")
foreach(name shadermachine render run asm dis val glsl opcodes)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${help_dir}/${name}.txt)
  file(READ ${help_dir}/${name}.txt help)
  string(REPLACE "\\" "\\e" help "${help}")
  string(REPLACE "-" "\\-" help "${help}")
  string(REGEX REPLACE "\nExit codes:.*" "" help_without_codes "${help}")
  string(TOUPPER ${name} heading)
  if(name STREQUAL "shadermachine")
    string(APPEND man_page ".SH SYNOPSIS\n.nf\n${help}\n.fi\n")
  else()
    string(APPEND man_page ".SH ${heading}\n.nf\n${help_without_codes}\n.fi\n")
  endif()
endforeach()
file(CONFIGURE OUTPUT shadermachine.1 CONTENT "@man_page@" @ONLY)
