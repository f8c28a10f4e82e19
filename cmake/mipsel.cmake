# The camera's own processor: 32-bit little-endian MIPS, with Debian's compiler; what is built runs in QEMU's user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)

set(target_root /usr/mipsel-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L ${target_root})
set(CMAKE_FIND_ROOT_PATH ${target_root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Boost is headers only, so the host's serve. A link shows them without the host's other headers beside them.
set(host_headers ${CMAKE_BINARY_DIR}/host_headers)
file(MAKE_DIRECTORY ${host_headers})
file(CREATE_LINK /usr/include/boost ${host_headers}/boost SYMBOLIC)
set(Boost_INCLUDE_DIR ${host_headers} CACHE PATH "Folder that holds Boost's headers")
