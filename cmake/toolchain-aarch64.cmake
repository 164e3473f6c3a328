# Cross build for 64-bit Arm with Debian's arm64 cross compiler and the arm64 ("multiarch")
# builds of the libraries, installed by scripts/install-arm64-deps.sh:
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake \
#         -DARM64_EXTRA_PKG_CONFIG_PATH=<folder of the unpacked libevent .pc files>
#
# Headers come from /usr/include and /usr/include/aarch64-linux-gnu, libraries and CMake package
# files from /usr/lib/aarch64-linux-gnu. Programs used during the build stay the build machine's:
# the Thrift compiler only writes C++, so the native one serves. Test programs run under qemu
# (scripts/run-arm64.sh), which ctest and test discovery call through the emulator setting.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(ARM64_TRIPLET aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${ARM64_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ARM64_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ARM64_TRIPLET})

# Never pick up a build-machine library by accident: the native multiarch folder is invisible.
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)

# The cross pkg-config reads the arm64 .pc files. libevent's development package cannot be
# installed for two architectures at once, so its arm64 copy is unpacked elsewhere and added here.
set(PKG_CONFIG_EXECUTABLE ${ARM64_TRIPLET}-pkg-config)
if(ARM64_EXTRA_PKG_CONFIG_PATH)
  set(ENV{PKG_CONFIG_PATH} "${ARM64_EXTRA_PKG_CONFIG_PATH}")
endif()

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/run-arm64.sh)
