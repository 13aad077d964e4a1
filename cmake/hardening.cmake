# SPDX-License-Identifier: Apache-2.0
# What makes a memory error in the shipped programs harder to exploit. Linked
# PRIVATE by every target that is installed; the test `hardening` reads the
# result back.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_library(quorvane_hardening INTERFACE)
set_target_properties(quorvane_hardening PROPERTIES
  INTERFACE_POSITION_INDEPENDENT_CODE ON)
target_compile_options(quorvane_hardening INTERFACE -fstack-protector-strong)
target_link_options(quorvane_hardening INTERFACE
  LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

# glibc's checks need an optimized build, and the sanitizers bring their own. A
# level that the user sets in CMAKE_CXX_FLAGS takes precedence.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize|_FORTIFY_SOURCE")
  set(optimized $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(quorvane_hardening INTERFACE
    "$<${optimized}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
