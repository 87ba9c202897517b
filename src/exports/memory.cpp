// The memory exports: blocks the library hands over come from malloc and go back here.
#include <cstdlib>

#include "Wrenlink/Wrenlink.h"

extern "C" {

void *WrenlinkMalloc(uint32_t size) { return std::malloc(size); }

void WrenlinkFree(void *block) { std::free(block); }

}  // extern "C"
