// The phone's media catalogue: list, add and del for images, music and videos. None of them takes
// the connection's lock or writes sendError: a failed exchange leaves the way open for the next.
#pragma once

#include <cstdint>

#include "Wrenlink/Wrenlink.h"

namespace wrenlink::agent {

enum class MediaKind { Images, Music, Videos };

// Hangs the listed items on head->next (only when the list is not empty) and stores their number
// in *count; on any failure neither is touched.
AgentStatus list_media(NetConnection *conn, MediaKind kind, __MediaBean *head, uint32_t *count);
// Send the text (without its NUL); the agent's status.
AgentStatus add_media(NetConnection *conn, MediaKind kind, const char *text);
AgentStatus delete_media(NetConnection *conn, MediaKind kind, const char *text);

}  // namespace wrenlink::agent
