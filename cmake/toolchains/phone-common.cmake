# What the four phone toolchain files share: a Linux target built by a Debian compiler, linked
# fully static, so that the program needs nothing on the phone but its kernel (no dynamic loader,
# no C or C++ library of the phone's own, which is not glibc). Included by <abi>.cmake after it
# has set WRENLINK_PHONE_TRIPLE (empty for this machine's own compiler) and the processor.
set(CMAKE_SYSTEM_NAME Linux)
if(WRENLINK_PHONE_TRIPLE)
  set(CMAKE_C_COMPILER ${WRENLINK_PHONE_TRIPLE}-gcc)
  set(CMAKE_CXX_COMPILER ${WRENLINK_PHONE_TRIPLE}-g++)
  # Libraries and headers come from the cross compiler's own tree, programs from this machine.
  set(CMAKE_FIND_ROOT_PATH /usr/${WRENLINK_PHONE_TRIPLE})
  set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
else()
  set(CMAKE_C_COMPILER gcc)
  set(CMAKE_CXX_COMPILER g++)
endif()
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libstdc++ -static-libgcc")
# 64-bit file sizes, offsets and inode numbers on the 32-bit ABIs too: without them a 32-bit
# build's stat and readdir fail (EOVERFLOW) on a file of 2 GiB or more, or on a file system with
# large inode numbers, and such files vanish from listings. A no-op on the 64-bit ABIs.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")
