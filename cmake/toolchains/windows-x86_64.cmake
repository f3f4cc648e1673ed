# SPDX-License-Identifier: GPL-3.0-or-later
# Windows of 64 bits by Debian's MinGW-w64 with POSIX threads. Libraries come from the prefix that
# scripts/windows-dependencies makes, and never from this system.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VELTRA_WINDOWS_PREFIX ${CMAKE_CURRENT_LIST_DIR}/../../build/windows-prefix CACHE PATH
  "Prefix that scripts/windows-dependencies has filled")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELTRA_WINDOWS_PREFIX)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

set(CMAKE_FIND_ROOT_PATH ${VELTRA_WINDOWS_PREFIX} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${VELTRA_WINDOWS_PREFIX}/lib/pkgconfig)

# A file that is loaded into a program on another computer brings the compiler's libraries along.
set(ZLIB_USE_STATIC_LIBS ON)
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -static)
endforeach()

# Windows 10, the oldest that has what the module asks for.
foreach(language IN ITEMS C CXX)
  set(CMAKE_${language}_FLAGS_INIT "-D_WIN32_WINNT=0x0A00 -DWINVER=0x0A00 -DNTDDI_VERSION=0x0A000000")
endforeach()

# JUCE is compiled from its sources, which are the same everywhere.
set(JUCE_MODULES_DIR /usr/share/juce/modules CACHE PATH "JUCE's modules")
