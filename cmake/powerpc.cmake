# 32-bit big-endian: Debian's cross compiler, run by qemu-user. script/powerpc builds zlib for it
# into the folder named by VESK_POWERPC_ROOT.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc;-L;/usr/powerpc-linux-gnu)

get_filename_component(root "${CMAKE_CURRENT_LIST_DIR}/../build/powerpc-root" ABSOLUTE)
set(VESK_POWERPC_ROOT "${root}" CACHE PATH "Libraries built for the other machine")
set(CMAKE_FIND_ROOT_PATH "${VESK_POWERPC_ROOT}" /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
