# Builds for Linux on another processor with Debian's cross compiler, and runs programs in an emulator:
# -DNIVUR_CROSS=TRIPLET
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NIVUR_CROSS)
string(REGEX MATCH "^[^-]+" processor "${NIVUR_CROSS}")
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${processor})
set(CMAKE_CXX_COMPILER ${NIVUR_CROSS}-g++)
set(CMAKE_C_COMPILER ${NIVUR_CROSS}-gcc)
set(CMAKE_LIBRARY_ARCHITECTURE ${NIVUR_CROSS})
# All programs must use the same C library: the distribution's for that architecture if installed, otherwise the cross
# compiler's.
set(root /)
if(NOT EXISTS /lib/${NIVUR_CROSS}/libc.so.6)
  set(root /usr/${NIVUR_CROSS})
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${processor}-static -L ${root})
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${NIVUR_CROSS}/pkgconfig)
