# Toolchain for 64-bit ARM, used by scripts/cross-arm64: Debian's cross compiler, a folder with the
# libraries for that processor (TARN_SYSROOT), and the emulator that runs the tests.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(TARN_SYSROOT "" CACHE PATH "Libraries and headers for 64-bit ARM")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TARN_SYSROOT)
set(CMAKE_SYSROOT "${TARN_SYSROOT}")
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L "${TARN_SYSROOT}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
