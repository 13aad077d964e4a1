# SPDX-License-Identifier: Apache-2.0
# Compiler and linker options that make memory errors harder to exploit. Every
# installed target links this library; the test `hardening` checks the result.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_library(quorvane_hardening INTERFACE)
set_target_properties(quorvane_hardening PROPERTIES
  INTERFACE_POSITION_INDEPENDENT_CODE ON)
target_compile_options(quorvane_hardening INTERFACE -fstack-protector-strong)
target_link_options(quorvane_hardening INTERFACE
  LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

# The checks of glibc require an optimized build, and the sanitizers have their
# own. A level in CMAKE_CXX_FLAGS overrides this one.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize|_FORTIFY_SOURCE")
  set(optimized $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(quorvane_hardening INTERFACE
    "$<${optimized}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
