// Turns the payload of a media list reply into a chain of __MediaBean records.
#pragma once

#include <cstdint>

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
