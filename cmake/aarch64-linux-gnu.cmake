# Cross-build for the camera's processor (64-bit Arm Linux) with Debian's
# cross compiler; the arm64 libraries come from multiarch packages
# (libsqlite3-dev:arm64, libgtest-dev:arm64) under /usr/lib/aarch64-linux-gnu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Programs are the build machine's; libraries, headers and packages the
# target's only, so no x86-64 library slips into an arm64 link.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config modules (cpp-httplib for slewweb): the arm64 ones only.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# Tests, test discovery and scenarios run the arm64 programs through
# user-mode emulation, on the multiarch arm64 runtime (libc6:arm64,
# libstdc++6:arm64), as on an arm64 Debian system. Not on the cross
# compiler's /usr/aarch64-linux-gnu: its loader is another build of glibc
# than the multiarch libc that the arm64 libraries pull in, and a program
# that forks hangs in the child on that mix.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)
