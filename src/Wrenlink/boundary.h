// Every exported entry point is a thin extern "C" shell around ordinary C++: nothing may leave the
// library as an exception. `guarded` runs the body and turns any exception into the family's error
// value (an allocation failure included).
#pragma once

#include <cerrno>
#include <new>
#include <utility>

namespace wrenlink {

template <class R, class Body>
R guarded(R onError, Body &&body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return onError;
    }
}

template <class Body>
void guarded_void(Body &&body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
    }
}

}  // namespace wrenlink
