// The one exchange of the remote file and path operations: gate on fileError, the connection's
// lock around one request and its whole reply, and the rule of which exits stop the family.
//
// Sticky exits are those after which the stream is out of step or broken: a failed send or short
// header (errno is stored), a bad magic, a short payload, a bad CRC (the returned code is stored).
// A refusal, and the local failures that consume the whole reply (ENOMEM, EMSGSIZE), leave the
// connection usable. An open never stores anything.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "agent/link/connection.h"
#include "agent/link/reply_reader.h"

namespace wrenlink::agent::nfc {

// How an exchange ended: the result to return, and the value that goes to fileError (0: none).
struct Exit {
    AgentStatus result;
    int sticky;
};

// The reply was read as far as the operation needs: the stream is in step.
inline Exit answered(AgentStatus result) { return {result, 0}; }
// A bad magic, short payload or bad CRC: the rest of the reply is lost in the stream.
inline Exit out_of_step(AgentStatus code) { return {code, static_cast<int>(code)}; }
// A send or the header receive failed; `result` is errno unless the operation says otherwise.
inline Exit transfer_failed(AgentStatus result) { return {result, failure_errno()}; }
inline Exit transfer_failed() {
    const int err = failure_errno();
    return {static_cast<AgentStatus>(err), err};
}

// A step of an exchange: nothing while it goes on, or the exit it ended with.
using Step = std::optional<Exit>;

enum class Sticky { Yes, No };

// fileError, read without the lock: written only under it, read atomically so that a gate check
// never races with another thread's failing exchange.
inline AgentStatus gate(const NetConnection *conn) noexcept {
    return static_cast<AgentStatus>(load_field(conn->fileError));
}

// Runs `body` (which takes the exchange's reply reader and returns an Exit) under the
// connection's lock, stores its sticky value in fileError when the operation's rule says so, and
// releases the lock on every exit.
template <class Body>
AgentStatus exchange(NetConnection *conn, Sticky sticky, Body &&body) {
    std::lock_guard lock(conn->mutex);
    ReplyReader reply(conn);
    const Exit exit = body(reply);
    if (sticky == Sticky::Yes && exit.sticky != 0) store_field(conn->fileError, exit.sticky);
    return exit.result;
}

// The exit a take calls for: nothing when it took the whole.
Step step(Took took);
// Sends the whole request; a negative result ends the exchange.
Step send_request(ReplyReader &reply, const void *bytes, int32_t size);
// Send, then the reply header, whole and with the right magic.
Step request(ReplyReader &reply, const std::string &packet, wire::PacketHeader &header);

}  // namespace wrenlink::agent::nfc
