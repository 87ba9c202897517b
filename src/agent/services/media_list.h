// The payload of a media list reply, turned into a chain of __MediaBean records as it comes in.
#pragma once

#include <cstdint>

#include "Wrenlink/Wrenlink.h"
#include "agent/link/reply_reader.h"

namespace wrenlink::agent {

// Receives a list reply's payload (what `reply` has left of it after the header) and parses it as
// it comes, a window of it at a time: whole items (value1 u32, text1 with its NUL, value2 u64, text2, value3 u64,
// text3; little-endian, unaligned) into malloc'd records, each text in a malloc block of its own.
// Returns the number of items and stores 0 in *status. An empty payload returns 0 and writes
// nothing; otherwise the chain replaces head->next, in the order of the wire.
//
// The payload is never held whole: a list of 100,000 items would otherwise take a block of several
// megabytes for every call, and that block's allocation makes the allocator tidy up all the small
// blocks the caller freed since.
//
// A payload that does not end exactly on an item's end, or whose text has no NUL before the end,
// gives AgentShortPayload; so does a stream that ends first, and a length of 2^31 or more at once
// (a negative count, nothing read). A failed allocation gives ENOMEM, after the rest of the payload
// was read and dropped: the stream stays in step. Either way every record parsed so far is freed,
// the head is left alone and 0 is returned.
uint32_t receive_media_list(ReplyReader &reply, __MediaBean *head, AgentStatus *status);

}  // namespace wrenlink::agent
