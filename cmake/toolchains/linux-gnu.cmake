# For Debian's cross compilers and its packages of the other architecture; tests run under qemu. The
# files of the processors include this one.
set(CMAKE_SYSTEM_NAME Linux)
set(target ${CMAKE_SYSTEM_PROCESSOR}-linux-gnu)
set(CMAKE_C_COMPILER ${target}-gcc)
set(CMAKE_CXX_COMPILER ${target}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${target})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static -L /usr/${target})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${target}/pkgconfig:/usr/share/pkgconfig)
