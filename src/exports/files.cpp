// Remote files and paths.
#include "Wrenlink/Wrenlink.h"
#include "agent/services/files.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

AgentStatus NFCFileRefOpen(NetConnection *conn, const char *path, const char *mode, NFCFileRef **ref) {
    return guarded_status([&] { return agent::open_file(conn, path, mode, ref); });
}

AgentStatus NFCFileRefRead(NetConnection *conn, NFCFileRef *ref, void *buffer, int32_t *length) {
    return guarded_status([&] { return agent::read_file(conn, ref, buffer, length); });
}

AgentStatus NFCFileRefWrite(NetConnection *conn, NFCFileRef *ref, const void *data, int32_t length) {
    return guarded_status([&] { return agent::write_file(conn, ref, data, length); });
}

AgentStatus NFCFileRefTell(NetConnection *conn, NFCFileRef *ref, int64_t *agentPosition) {
    return guarded_status([&] { return agent::tell_file(conn, ref, agentPosition); });
}

AgentStatus NFCFileRefSeek(NetConnection *conn, NFCFileRef *ref, int64_t offset, int32_t whence) {
    return guarded_status([&] { return agent::seek_file(conn, ref, offset, whence); });
}

AgentStatus NFCFileRefClose(NetConnection *conn, NFCFileRef *ref) {
    return guarded_status([&] { return agent::close_file(conn, ref); });
}

AgentStatus NFCFileRefDelete(NetConnection *conn, const char *path) {
    return guarded_status([&] { return agent::delete_path(conn, path); });
}

AgentStatus NFCFileRefMkDir(NetConnection *conn, const char *path) {
    return guarded_status([&] { return agent::make_directory(conn, path); });
}

AgentStatus NFCFileRefAccess(NetConnection *conn, const char *path) {
    return guarded_status([&] { return agent::access_path(conn, path); });
}

}  // extern "C"
