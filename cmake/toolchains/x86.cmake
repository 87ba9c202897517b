# The reference agent for phones of the ABI x86 (32-bit, i686), static; see phone-common.cmake.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(WRENLINK_PHONE_TRIPLE i686-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/phone-common.cmake)
