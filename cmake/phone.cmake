# A phone's tool chain as far as Debian has it: 64-bit Arm, clang, lld and libc++, no RTTI, and the
# linker's checks that a device tree makes fatal. scripts/test --phone fills the sysroot.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
get_filename_component(CMAKE_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build-phone/sysroot" ABSOLUTE)

# Where clang looks for its run-time library, which belongs to the processor.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir
    OUTPUT_VARIABLE resources OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_C_FLAGS_INIT "-resource-dir ${CMAKE_SYSROOT}${resources}")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -stdlib=libc++ -fno-rtti -fexceptions")
string(JOIN " " link_flags -fuse-ld=lld -rtlib=compiler-rt -unwindlib=libunwind
    -Wl,--no-undefined-version -Wl,--fatal-warnings -Wl,-z,defs)
set(CMAKE_EXE_LINKER_FLAGS_INIT "${link_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${link_flags}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L "${CMAKE_SYSROOT}")
# The project leaves out what cannot be had with libc++.
set(FBO_PHONE ON)
