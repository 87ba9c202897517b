// The public header compiles as C99 with every warning on; its own static assertions pin the
// records' layout, in C as in C++.
#include <Wrenlink/Wrenlink.h>
