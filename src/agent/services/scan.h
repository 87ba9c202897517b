// The disk discovery scan. The agent scans; the library starts it on the control connection,
// follows its events on a connection of its own to 127.0.0.1:10244, and lets other threads (or
// the callbacks) stop, pause or resume it and erase files through the control connection, which
// the loop never touches. Nothing here takes the connection's lock.
#pragma once

#include <cstdint>

#include "Wrenlink/Wrenlink.h"

namespace wrenlink::agent {

// Starts the scan and follows its events on the caller's thread until the stream ends. The
// agent's refusal, or a failed request, is returned; once the agent has agreed the outcome reaches
// the caller through onCode alone, and the result is 0.
AgentStatus start_scan(NetConnection *conn, const char *unused, NDDFoundItemCallback onFoundItem,
                       NDDCodeCallback onCode, NDDProgressCallback onProgress, uint64_t userValue);

// The control requests: the agent's status, or a failed request (which sticks in sendError).
AgentStatus stop_scan(NetConnection *conn);
AgentStatus pause_scan(NetConnection *conn);
AgentStatus resume_scan(NetConnection *conn);
AgentStatus erase_file(NetConnection *conn, const char *path);

// What start_scan hands to the loop.
struct ScanArgs {
    NetConnection *control;  // not used by the loop: it stays free for the control operations
    NetConnection *events;   // null when the event connection could not be opened
    NDDFoundItemCallback onFoundItem;
    NDDCodeCallback onCode;
    NDDProgressCallback onProgress;
    uint64_t userValue;
};

// Greets the agent on the event connection and turns its events into callbacks until the stream
// ends; then tells the caller code 22 unless the scan had finished. Runs on the caller's thread.
// Null callbacks are skipped. The connection and the block stay the caller's.
void follow_scan_events(ScanArgs *args);

}  // namespace wrenlink::agent
