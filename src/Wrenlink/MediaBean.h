// Turns the payload of a media list reply into a chain of __MediaBean records.
#pragma once

#include <cstdint>

#include "Wrenlink/NetConnection.h"
#include "Wrenlink/Wrenlink.h"

// Parses `count` bytes of whole items (value1 u32, text1 with its NUL, value2 u64, text2, value3
// u64, text3; little-endian, unaligned) into malloc'd records, each text in a malloc block of its
// own. Returns the number of items and stores 0 in *status. An empty payload returns 0 and writes
// nothing; otherwise the chain replaces head->next, in the order of the wire.
//
// A payload that does not end exactly on an item's end, or whose text has no NUL before the end,
// is never read beyond `count`: *status becomes AgentShortPayload, every record parsed so far is
// freed and the head is left alone. A failed allocation does the same with ENOMEM.
uint32_t ParseMediaBeanFromBytes(__MediaBean *head, const void *bytes, uint64_t count, AgentStatus *status);

// Receives a list reply's payload of `length` bytes from `conn` and parses it as it comes, a window
// of it at a time, with the same records and results as ParseMediaBeanFromBytes over the whole
// payload. The payload is never held whole: a list of 100,000 items would otherwise take a block of
// several megabytes for every call, and that block's allocation makes the allocator tidy up all the
// small blocks the caller freed since. Besides the results of the parse: AgentShortPayload when the
// stream ends first, or at once for a length of 2^31 or more (a negative count, nothing read). After
// a failed allocation the rest of the payload is still read (and dropped): the stream stays in step.
uint32_t ReceiveMediaBeans(NetConnection *conn, __MediaBean *head, uint32_t length, AgentStatus *status);
