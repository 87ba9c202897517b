// The disk discovery scan.
#include "Wrenlink/Wrenlink.h"
#include "agent/services/scan.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

AgentStatus NDDStartScan(NetConnection *conn, const char *unused, NDDFoundItemCallback onFoundItem,
                         NDDCodeCallback onCode, NDDProgressCallback onProgress, uint64_t userValue) {
    return guarded_status([&] { return agent::start_scan(conn, unused, onFoundItem, onCode, onProgress, userValue); });
}

AgentStatus NDDStopScan(NetConnection *conn) { return guarded_status([&] { return agent::stop_scan(conn); }); }

AgentStatus NDDPauseScan(NetConnection *conn) { return guarded_status([&] { return agent::pause_scan(conn); }); }

AgentStatus NDDResumeScan(NetConnection *conn) { return guarded_status([&] { return agent::resume_scan(conn); }); }

AgentStatus NDDEraseFile(NetConnection *conn, const char *path) {
    return guarded_status([&] { return agent::erase_file(conn, path); });
}

}  // extern "C"
