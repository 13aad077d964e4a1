# SPDX-License-Identifier: Apache-2.0
# Compilers, dependencies and the two library targets.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_EXTENSIONS OFF)

# All code of this build is compiled with the same options.
add_compile_definitions(QUORVANE_SAME_STANDARD_LIBRARY_OPTIONS)

# Always linked PRIVATE, so that the build of a user does not inherit -Werror.
add_library(quorvane_warnings INTERFACE)
target_compile_options(quorvane_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
target_compile_features(quorvane_warnings INTERFACE cxx_std_20)

find_package(CURL 7.88 REQUIRED)
find_package(cJSON 1.7.15 REQUIRED)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)

# All code of the library, compiled once with hidden visibility. The shared
# library consists of these objects; the main test program links them, so that it
# can test private functions.
add_library(quorvane_objects OBJECT)
set_target_properties(quorvane_objects PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(quorvane_objects
  PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(quorvane_objects
  PUBLIC CURL::libcurl cjson ZLIB::ZLIB Threads::Threads ${CMAKE_DL_LIBS}
  PRIVATE quorvane_warnings quorvane_hardening)

add_library(quorvane SHARED)
add_library(Quorvane::quorvane ALIAS quorvane)
set_target_properties(quorvane PROPERTIES
  OUTPUT_NAME QuorvaneLib
  EXPORT_NAME quorvane
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINKER_LANGUAGE CXX
  VERIFY_INTERFACE_HEADER_SETS ON
  QUORVANE_INCLUDES quorvane)
target_compile_features(quorvane INTERFACE cxx_std_17)
target_sources(quorvane PRIVATE $<TARGET_OBJECTS:quorvane_objects>)
target_link_libraries(quorvane
  PRIVATE CURL::libcurl cjson ZLIB::ZLIB Threads::Threads ${CMAKE_DL_LIBS}
          quorvane_hardening)
target_link_options(quorvane PRIVATE
  LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/quorvane.map)
set_target_properties(quorvane PROPERTIES
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/quorvane.map)
