# The reference agent for phones of the ABI arm64-v8a (AArch64), static; see phone-common.cmake.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(WRENLINK_PHONE_TRIPLE aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/phone-common.cmake)
