# The reference agent for phones of the ABI armeabi-v7a (32-bit ARM, hard float), static; see
# phone-common.cmake.
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
set(WRENLINK_PHONE_TRIPLE arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/phone-common.cmake)
