# Cross-builds for 64-bit ARM with Debian's compiler and multiarch libraries (setup.sh --arm64), and
# runs what was built in the emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

find_program(VCTK_QEMU NAMES qemu-aarch64 qemu-aarch64-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VCTK_QEMU})

# Packages that cannot be installed for two processors at once are unpacked here by setup.sh. Botan's
# static library needs nothing further.
get_filename_component(apart ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-root/usr ABSOLUTE)
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES ${apart}/include/aarch64-linux-gnu)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${apart}/include/aarch64-linux-gnu)
set(VCTK_BOTAN_INCLUDE ${apart}/include/botan-2 CACHE PATH "Botan's headers.")
set(VCTK_BOTAN_LIBRARY ${apart}/lib/aarch64-linux-gnu/libbotan-2.a CACHE FILEPATH "Botan.")
# This machine's would be found, for its packages exclude those of another processor too.
set(VCTK_SOFTHSM "" CACHE FILEPATH "SoftHSM's module.")
set(ENV{PKG_CONFIG_LIBDIR}
  ${apart}/lib/aarch64-linux-gnu/pkgconfig:/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
