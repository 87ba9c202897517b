// Thread cancellation as a host may use it (deferred: a cancelled thread unwinds from its next
// blocking call). Blocking calls on the way in stay cancellation points, so that a cancelled call
// ends; cleanup on the way out must run whole, so there they are not.
#pragma once

#include <pthread.h>

namespace wrenlink {

// Cancellation held off for a scope: a close, the kill and reaping of a child.
class NoCancel {
public:
    NoCancel() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old_); }
    ~NoCancel() { pthread_setcancelstate(old_, nullptr); }
    NoCancel(const NoCancel &) = delete;
    NoCancel &operator=(const NoCancel &) = delete;

private:
    int old_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace wrenlink
