# cpack -G DEB: the libraries, their development files and the program as packages.
set(CPACK_PACKAGE_VENDOR "the shadermachine developers")
set(CPACK_PACKAGE_CONTACT "the shadermachine developers <maintainers@shadermachine.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libshadermachine${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "shared library")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libshadermachine-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION "headers and the tools library")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
if(TARGET shadermachine-glsl)
  set(CPACK_COMPONENT_DEV_DESCRIPTION "headers, the tools library and the GLSL compiler")
  set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "glslang-dev, glslang-tools")
endif()

if(TARGET shadermachine-batch)
  list(APPEND CPACK_COMPONENTS_ALL batch)
  set(CPACK_DEBIAN_BATCH_PACKAGE_NAME libshadermachine-batch${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_BATCH_PACKAGE_SECTION libs)
  set(CPACK_COMPONENT_BATCH_DESCRIPTION "shared library for many invocations in one call")
  list(APPEND CPACK_COMPONENT_DEV_DEPENDS batch)
endif()

if(TARGET shadermachine-program)
  list(APPEND CPACK_COMPONENTS_ALL tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME shadermachine-tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
  set(CPACK_COMPONENT_TOOLS_DESCRIPTION "assembler, disassembler, validator and renderer")
endif()

# A copyright and a changelog for every package, and the loader's cache for those with a library.
set(package_files ${PROJECT_BINARY_DIR}/packages)
configure_file(cmake/copyright.in ${package_files}/copyright @ONLY)
file(STRINGS CHANGELOG.md release REGEX "^## [0-9]" LIMIT_COUNT 1)
string(REGEX REPLACE ".* " "" release_date "${release}")
execute_process(COMMAND date --utc --rfc-email --date=${release_date}
  OUTPUT_VARIABLE release_date OUTPUT_STRIP_TRAILING_WHITESPACE)
configure_file(cmake/changelog.in ${package_files}/changelog @ONLY)
file(WRITE ${package_files}/triggers "activate-noawait ldconfig\n")
# CPack adds scripts that do the trigger's work once more, unless it is told of others. There are none:
# it warns that it leaves them out.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${package_files}/triggers ${package_files}/postinst ${package_files}/postrm)
set(CPACK_DEBIAN_BATCH_PACKAGE_CONTROL_EXTRA ${CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA})
execute_process(COMMAND gzip --best --no-name --force ${package_files}/changelog)
foreach(component runtime batch dev tools)
  string(TOUPPER ${component} key)
  if(NOT CPACK_DEBIAN_${key}_PACKAGE_NAME)
    continue()
  endif()
  install(FILES ${package_files}/copyright ${package_files}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME}
    COMPONENT ${component})
endforeach()
include(CPack)
