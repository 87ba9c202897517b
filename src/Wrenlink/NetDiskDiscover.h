// The scan's event loop, behind NDDStartScan.
#pragma once

#include <cstdint>

#include "Wrenlink/Wrenlink.h"

// What NDDStartScan hands to the loop.
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
void pthread_start(ScanArgs *args);
