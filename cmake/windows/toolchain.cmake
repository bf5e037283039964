# Builds for Windows on Debian with MinGW-w64 and its POSIX threads, with the libraries of scripts/windows_libraries.sh.
# Everything is linked in: the programs ask a Windows machine for nothing but a Vulkan driver.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)

set(libraries $ENV{HOME}/.cache/ombrelux-windows)
if(DEFINED ENV{OMBRELUX_WINDOWS_LIBRARIES})
  set(libraries $ENV{OMBRELUX_WINDOWS_LIBRARIES})
endif()
set(libraries ${libraries}/x86_64-w64-mingw32)
set(ENV{PKG_CONFIG_LIBDIR} ${libraries}/lib/pkgconfig)
set(PKG_CONFIG_ARGN --static)

set(CMAKE_FIND_ROOT_PATH ${libraries} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The tests run under Wine.
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
