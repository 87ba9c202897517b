# What the example applications share (agent_install.h: the agent installed on a phone through
# the library's exported calls), as a static library on the public header alone. Each example
# includes this file; the target is made once, whether the examples build inside the Wrenlink
# tree or on their own against an installed Wrenlink.
if(NOT TARGET wrenlink_example_common)
  add_library(wrenlink_example_common STATIC ${CMAKE_CURRENT_LIST_DIR}/agent_install.cpp)
  target_include_directories(wrenlink_example_common PUBLIC ${CMAKE_CURRENT_LIST_DIR})
  target_compile_features(wrenlink_example_common PUBLIC cxx_std_20)
  target_link_libraries(wrenlink_example_common PUBLIC Wrenlink::Wrenlink)
  if(TARGET wrenlink_test_warnings)
    target_link_libraries(wrenlink_example_common PRIVATE wrenlink_test_warnings)
  endif()
endif()
