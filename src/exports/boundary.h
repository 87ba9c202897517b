// Every exported entry point is a thin extern "C" shell around ordinary C++: nothing may leave the
// library as an exception. `guarded` runs the body and turns any exception into the family's error
// value (an allocation failure included), except the unwinding of a thread that its host cancelled:
// that passes on, out of the library, with every lock released and every descriptor closed on the
// way. The barrier is therefore not noexcept.
#pragma once

#include <cerrno>
#include <new>
#include <utility>

#include "Wrenlink/Wrenlink.h"
#include "base/platform.h"

namespace wrenlink {

template <class R, class Body>
WRENLINK_CATCHES_FORCED_UNWIND R guarded(R onError, Body &&body) {
    try {
        return std::forward<Body>(body)();
    }
#ifdef WRENLINK_FORCED_UNWIND
    catch (WRENLINK_FORCED_UNWIND &) {
        throw;
    }
#endif
    catch (...) {
        return onError;
    }
}

// The barrier of the agent families: an allocation failure gives ENOMEM, anything else (a
// callback of the caller's that throws) EIO.
template <class Body>
AgentStatus guarded_status(Body &&body) {
    return guarded<AgentStatus>(EIO, [&]() -> AgentStatus {
        try {
            return body();
        } catch (const std::bad_alloc &) {
            return ENOMEM;
        }
    });
}

}  // namespace wrenlink
