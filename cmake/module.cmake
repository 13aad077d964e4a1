# SPDX-License-Identifier: Apache-2.0
# The build enforces the layers of the project. All modules share one include
# root, so the compiler accepts every include.

# quorvane_check_includes(TARGET DIRECTORY...)
#
# The build of TARGET fails if a file of the current directory includes a header
# of this project from another directory than the current one and DIRECTORY...
function(quorvane_check_includes target)
  file(RELATIVE_PATH directory ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  string(REPLACE "/" "_" name ${directory})
  set(allowed ${directory} ${ARGN})
  file(GLOB files CONFIGURE_DEPENDS *.h *.cc)
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/includes.stamp)
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} "-DFILES=${files}" "-DALLOWED=${allowed}"
            -DSTAMP=${stamp} -P ${PROJECT_SOURCE_DIR}/cmake/check_includes.cmake
    DEPENDS ${files} ${PROJECT_SOURCE_DIR}/cmake/check_includes.cmake
    COMMENT "Checking the includes of ${directory}" VERBATIM)
  add_custom_target(${name}_includes DEPENDS ${stamp})
  add_dependencies(${target} ${name}_includes)
endfunction()

# quorvane_module(NAME SOURCES FILE... [USES TARGET...] [PRIVATE TARGET...])
#
# Adds the static library NAME from files of the current directory. They may
# include the directories in the property QUORVANE_INCLUDES of the targets in
# USES and PRIVATE. A module that uses NAME may also include those of USES.
function(quorvane_module name)
  cmake_parse_arguments(PARSE_ARGV 1 module "" "" "SOURCES;USES;PRIVATE")
  add_library(${name} STATIC ${module_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name}
    PUBLIC ${module_USES}
    PRIVATE ${module_PRIVATE} quorvane_warnings quorvane_hardening)
  foreach(visibility IN ITEMS USES PRIVATE)
    foreach(used IN LISTS module_${visibility})
      if(TARGET ${used})
        get_property(directories TARGET ${used} PROPERTY QUORVANE_INCLUDES)
        list(APPEND ${visibility}_directories ${directories})
      endif()
    endforeach()
  endforeach()
  file(RELATIVE_PATH directory ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set_target_properties(${name} PROPERTIES
    QUORVANE_INCLUDES "${directory};${USES_directories}")
  quorvane_check_includes(${name} ${USES_directories} ${PRIVATE_directories})
endfunction()
