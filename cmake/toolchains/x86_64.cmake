# The reference agent for phones of the ABI x86_64, static, built by this machine's own compiler;
# see phone-common.cmake.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(WRENLINK_PHONE_TRIPLE "")
include(${CMAKE_CURRENT_LIST_DIR}/phone-common.cmake)
