// The ping: is the agent there and answering?
#pragma once

#include <cstdint>

#include "agent/link/connection.h"

namespace wrenlink::agent {

// 0: the agent answered 00 00 00 01; -2: an earlier send failed on this connection; -3: the
// receive failed with an error; -4: a wrong answer, or the peer closed.
int32_t ping(NetConnection *conn);

}  // namespace wrenlink::agent
