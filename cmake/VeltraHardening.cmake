# SPDX-License-Identifier: GPL-3.0-or-later
# What a library that is loaded into other programs is expected to be built with. tests/install/hardening reads the finished
# files and names what is missing. The sanitizers bring checks of their own that do not work together with these.

if(NOT MSVC AND NOT VELTRA_SANITIZE)
  add_compile_options(-fstack-protector-strong)
  # Path names in the files would differ from one build folder to the next, and would show where they were built.
  add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)

  # It needs optimisation. One option, so that nothing comes between the two and the -U of other flags comes before.
  add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")

  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    add_compile_options(-fstack-clash-protection)
    add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
      add_compile_options(-fcf-protection=full)
    endif()
  endif()
endif()
