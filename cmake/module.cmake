# SPDX-License-Identifier: Apache-2.0
# quorvane_module(NAME SOURCES FILE... [USES TARGET...] [PRIVATE TARGET...])
#
# Adds the static library NAME from the files of the current directory. USES are
# the modules that it may include; a build step fails on any other include of
# this project, because one include root serves them all and the compiler
# would accept it. PRIVATE targets are linked as well.
function(quorvane_module name)
  cmake_parse_arguments(PARSE_ARGV 1 module "" "" "SOURCES;USES;PRIVATE")
  add_library(${name} STATIC ${module_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name}
    PUBLIC ${module_USES}
    PRIVATE ${module_PRIVATE} quorvane_warnings quorvane_hardening)

  file(RELATIVE_PATH directory ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  foreach(visibility IN ITEMS USES PRIVATE)
    foreach(used IN LISTS module_${visibility})
      if(TARGET ${used})
        get_property(directories TARGET ${used} PROPERTY QUORVANE_INCLUDES)
        list(APPEND ${visibility}_directories ${directories})
      endif()
    endforeach()
  endforeach()
  set(public ${directory} ${USES_directories})
  set_target_properties(${name} PROPERTIES QUORVANE_INCLUDES "${public}")

  file(GLOB files CONFIGURE_DEPENDS *.h *.cc)
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/${name}.includes)
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} "-DFILES=${files}" "-DALLOWED=${public};${PRIVATE_directories}"
            -DSTAMP=${stamp} -P ${PROJECT_SOURCE_DIR}/cmake/check_includes.cmake
    DEPENDS ${files} ${PROJECT_SOURCE_DIR}/cmake/check_includes.cmake
    COMMENT "Checking the includes of ${directory}" VERBATIM)
  add_custom_target(${name}_includes DEPENDS ${stamp})
  add_dependencies(${name} ${name}_includes)
endfunction()
