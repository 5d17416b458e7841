# 32-bit little-endian MIPS with musl: Debian's cross compiler for glibc, turned to musl by the
# specs file of musl-dev:mipsel. There is no C++ library for musl there, and none is needed: the
# library uses the C++ headers only. What is built runs on a PC under qemu-user-static.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
# A C++ program could not be linked.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(KOVA_WITHOUT_CXX_LIBRARY ON)

# The kernel's headers stand among glibc's, which must stay out of sight.
set(kova_kernel_headers "${CMAKE_BINARY_DIR}/kernel-headers")
file(MAKE_DIRECTORY "${kova_kernel_headers}")
foreach(folder IN ITEMS linux asm asm-generic)
    file(CREATE_LINK "/usr/mipsel-linux-gnu/include/${folder}" "${kova_kernel_headers}/${folder}"
        SYMBOLIC)
endforeach()

set(kova_cxx_headers /usr/mipsel-linux-gnu/include/c++/12)
set(kova_musl "-specs=/usr/lib/mipsel-linux-musl/musl-gcc.specs")
set(CMAKE_C_FLAGS_INIT "${kova_musl} -idirafter ${kova_kernel_headers}")
# The C++ headers, configured for glibc, ask for its version.
set(CMAKE_CXX_FLAGS_INIT "${kova_musl} -isystem ${kova_cxx_headers} \
-isystem ${kova_cxx_headers}/mipsel-linux-gnu -idirafter ${kova_kernel_headers} \
'-D__GLIBC_PREREQ(a,b)=0'")

set(CMAKE_FIND_ROOT_PATH /usr/lib/mipsel-linux-musl)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel-static)
