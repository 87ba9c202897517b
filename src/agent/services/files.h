// Remote files and paths: a file on the phone opened by path, read and written at a position the
// handle keeps, moved, asked for its position and closed; and paths deleted, made and tested.
// Each operation is one exchange under the connection's lock (file_exchange.h), the seek two. Null
// pointers are refused (EINVAL) before the gate and before a request is formed: a call that cannot
// be completed puts nothing on the stream, which stays in step.
#pragma once

#include <cstdint>

#include "Wrenlink/Wrenlink.h"

// The handle behind the opaque NFCFileRef. Callers never look inside.
struct NFCFileRef {
    uint32_t remoteId;
    int64_t position;
};

namespace wrenlink::agent {

AgentStatus open_file(NetConnection *conn, const char *path, const char *mode, NFCFileRef **ref);
AgentStatus read_file(NetConnection *conn, NFCFileRef *ref, void *buffer, int32_t *length);
AgentStatus write_file(NetConnection *conn, NFCFileRef *ref, const void *data, int32_t length);
AgentStatus tell_file(NetConnection *conn, NFCFileRef *ref, int64_t *agentPosition);
AgentStatus seek_file(NetConnection *conn, NFCFileRef *ref, int64_t offset, int32_t whence);
AgentStatus close_file(NetConnection *conn, NFCFileRef *ref);

AgentStatus delete_path(NetConnection *conn, const char *path);
AgentStatus make_directory(NetConnection *conn, const char *path);
AgentStatus access_path(NetConnection *conn, const char *path);

}  // namespace wrenlink::agent
