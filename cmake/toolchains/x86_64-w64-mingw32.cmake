# For Debian's cross compiler with POSIX threads; tests run under wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(target x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${target}-gcc-posix)
set(CMAKE_CXX_COMPILER ${target}-g++-posix)
set(CMAKE_RC_COMPILER ${target}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${target})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
set(ENV{PKG_CONFIG_LIBDIR} /usr/${target}/lib/pkgconfig)
# The libraries carry the compiler's run-time with them. The tests find it in WINEPATH: linked into
# them, its allocations would count as the library's.
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
