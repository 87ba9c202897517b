// A block from malloc with one owner until it is handed over: to the caller, who gives it back
// with WrenlinkFree, or back to free on every other way out (an exception included).
#pragma once

#include <cstdlib>
#include <memory>

namespace wrenlink {

struct FreeDeleter {
    void operator()(void *block) const noexcept { std::free(block); }
};

template <class T>
using MallocBlock = std::unique_ptr<T, FreeDeleter>;

}  // namespace wrenlink
