# Cross build for 32-bit ARM (Debian armhf) with Debian's cross compiler; programs run under qemu-user.
# BRIO_ARM_ROOT holds the libraries' armhf packages, unpacked, and a link to the C library; scripts/check-arm fills it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(triplet arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${BRIO_ARM_ROOT})

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES BRIO_ARM_ROOT)
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT "-isystem ${BRIO_ARM_ROOT}/usr/include/${triplet}")
endforeach()
set(CMAKE_FIND_ROOT_PATH ${BRIO_ARM_ROOT} /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
