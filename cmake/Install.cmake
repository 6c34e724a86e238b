# What is installed, in four components: runtime (the library), batch (the batch library), dev
# (headers, the tools library and package files) and tools (the program).
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/shadermachine)

install(TARGETS shadermachine shadermachine_static EXPORT shadermachine-targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY include/shadermachine DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
  PATTERN batch.h EXCLUDE)
install(EXPORT shadermachine-targets NAMESPACE shadermachine:: DESTINATION ${package_dir}
  COMPONENT dev)

configure_package_config_file(cmake/shadermachine-config.cmake.in shadermachine-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(shadermachine-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/shadermachine-config.cmake
              ${PROJECT_BINARY_DIR}/shadermachine-config-version.cmake
  DESTINATION ${package_dir} COMPONENT dev)

# Relative to its own folder, so that an installed tree can be moved.
file(RELATIVE_PATH SHADERMACHINE_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
list(TRANSFORM SHADERMACHINE_RUNTIME PREPEND -l OUTPUT_VARIABLE runtime)
list(JOIN runtime " " SHADERMACHINE_PC_RUNTIME)
configure_file(cmake/shadermachine.pc.in shadermachine.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/shadermachine.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

if(SHADERMACHINE_BUILD_BATCH)
  install(TARGETS shadermachine-batch EXPORT shadermachine-batch-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT batch NAMELINK_COMPONENT dev)
  install(FILES include/shadermachine/batch.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/shadermachine COMPONENT dev)
  install(EXPORT shadermachine-batch-targets NAMESPACE shadermachine:: DESTINATION ${package_dir}
    COMPONENT dev)
  configure_file(cmake/shadermachine-batch.pc.in shadermachine-batch.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/shadermachine-batch.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endif()

if(SHADERMACHINE_BUILD_TOOLS)
  set_target_properties(shadermachine-tools PROPERTIES EXPORT_NAME tools)
  install(TARGETS shadermachine-tools EXPORT shadermachine-tools-targets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
  install(DIRECTORY tools/toolkit/include/shadermachine-tools DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT dev PATTERN glsl.h EXCLUDE)
  configure_file(cmake/shadermachine-tools.pc.in shadermachine-tools.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/shadermachine-tools.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
  install(EXPORT shadermachine-tools-targets NAMESPACE shadermachine:: DESTINATION ${package_dir}
    COMPONENT dev)
endif()
if(SHADERMACHINE_BUILD_TOOLS AND TARGET shadermachine-glsl)
  set_target_properties(shadermachine-glsl PROPERTIES EXPORT_NAME glsl)
  install(TARGETS shadermachine-glsl EXPORT shadermachine-glsl-targets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
  install(FILES tools/toolkit/include/shadermachine-tools/glsl.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/shadermachine-tools COMPONENT dev)
  # Static libraries, some of which later versions have no more.
  set(SHADERMACHINE_GLSLANG_LIBS "")
  foreach(library glslang glslang-default-resource-limits MachineIndependent OSDependent OGLCompiler
          GenericCodeGen)
    find_library(GLSLANG_LIBRARY_${library} ${library})
    if(GLSLANG_LIBRARY_${library})
      string(APPEND SHADERMACHINE_GLSLANG_LIBS " -l${library}")
    endif()
  endforeach()
  configure_file(cmake/shadermachine-glsl.pc.in shadermachine-glsl.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/shadermachine-glsl.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
  install(EXPORT shadermachine-glsl-targets NAMESPACE shadermachine:: DESTINATION ${package_dir}
    COMPONENT dev)
endif()
if(TARGET shadermachine-program)
  install(TARGETS shadermachine-program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  # Made by running the program, which a build for another system cannot.
  if(NOT CMAKE_CROSSCOMPILING)
    install(FILES ${PROJECT_BINARY_DIR}/tools/shadermachine.1.gz
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES ${PROJECT_BINARY_DIR}/tools/completion.bash RENAME shadermachine
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    install(FILES ${PROJECT_BINARY_DIR}/tools/completion.fish RENAME shadermachine.fish
      DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
    install(FILES ${PROJECT_BINARY_DIR}/tools/completion.zsh RENAME _shadermachine
      DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
  endif()
endif()

install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(FILES README.md SECURITY.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(FILES examples/colour_shader.h examples/minimal.c examples/batch.c
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT dev)
install(DIRECTORY examples/gallery DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT dev)
