# SPDX-License-Identifier: Apache-2.0
# quorvane_embed(TARGET FILE NAME)
#
# Compiles the contents of FILE into TARGET as the constant
# quorvane::tool::NAME. Declare it in a header of the module:
#   extern const std::string_view NAME;
function(quorvane_embed target file name)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  file(READ ${file} contents)
  file(CONFIGURE OUTPUT ${name}.cc @ONLY CONTENT [=[
#include <string_view>
namespace quorvane::tool {
extern const std::string_view @name@;
constinit const std::string_view @name@ = R"embedded(@contents@)embedded";
}
]=])
  target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${name}.cc)
  set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${name}.cc PROPERTIES
    SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
