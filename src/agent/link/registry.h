// The connections handed to callers.
#pragma once

#include <cstdint>

#include "agent/link/connection.h"

namespace wrenlink::agent {

// Opens a connection (open_connection) and keeps its record for the life of the process: a handle
// used after its close must fail with an error rather than touch freed memory. Null on failure.
NetConnection *open_kept_connection(const char *address, uint32_t port);

}  // namespace wrenlink::agent
