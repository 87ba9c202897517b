// Who may talk to the agent: only a peer running as the agent's own uid or as root. adb's daemon
// makes the connections it forwards as the shell user (root when adb runs as root), and the agent
// runs as that user, so forwarded connections pass; another app on the phone has a uid of its own
// and is refused, on the control socket and on the scan's event socket alike.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/unique_fd.h"
#include "log.h"

namespace wrenlink::reference_agent {

// The uid of the process at the other end of a connected socket: from the kernel's credentials on
// a local socket, from the kernel's socket tables on TCP. nullopt when it cannot be found.
std::optional<uid_t> peer_uid(int fd);

// Accepts one connection and keeps it only when its peer passes; a refused one is closed before
// any of its bytes is read, and logged (always, not only with --verbose) as
// "refused <what> from uid N". Empty when nothing was accepted or the peer was refused.
UniqueFd accept_trusted(int listener, const Log &log, const std::string &what);

}  // namespace wrenlink::reference_agent
