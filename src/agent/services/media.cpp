#include "agent/services/media.h"

#include <string>

#include "agent/link/reply_reader.h"
#include "agent/services/media_list.h"
#include "agent/wire/packets.h"

namespace wrenlink::agent {

namespace {

// The requests of one kind: the three operations differ only in their packet.
struct MediaRequests {
    std::string (*list)();
    std::string (*add)(const char *);
    std::string (*remove)(const char *);
};

const MediaRequests &requests(MediaKind kind) {
    static const MediaRequests kByKind[] = {
        {make_list_image_packet, make_add_image_packet, make_del_image_packet},  // MediaKind::Images
        {make_list_music_packet, make_add_music_packet, make_del_music_packet},  // MediaKind::Music
        {make_list_video_packet, make_add_video_packet, make_del_video_packet},  // MediaKind::Videos
    };
    return kByKind[static_cast<int>(kind)];
}

AgentStatus change_media(NetConnection *conn, std::string (*make)(const char *), const char *text) {
    if (conn == nullptr || text == nullptr) return EINVAL;
    ReplyReader reader(conn);
    wire::PacketHeader reply;
    if (const AgentStatus r = control_request(reader, make(text), reply, SendErrorRule::Untouched)) return r;
    return reply.status;
}

}  // namespace

AgentStatus list_media(NetConnection *conn, MediaKind kind, __MediaBean *head, uint32_t *count) {
    if (conn == nullptr || head == nullptr || count == nullptr) return EINVAL;
    ReplyReader reader(conn);
    wire::PacketHeader reply;
    if (const AgentStatus r = control_request(reader, requests(kind).list(), reply, SendErrorRule::Untouched)) return r;
    // A refusal's payload, if any, stays in the stream. Kept: agents send none, and reading it
    // would change what a caller's next request gets from one that does.
    if (reply.status != 0) return reply.status;
    AgentStatus parsed = 0;
    const uint32_t items = receive_media_list(reader, head, &parsed);
    if (parsed != 0) return parsed;
    *count = items;
    return 0;
}

AgentStatus add_media(NetConnection *conn, MediaKind kind, const char *text) {
    return change_media(conn, requests(kind).add, text);
}

AgentStatus delete_media(NetConnection *conn, MediaKind kind, const char *text) {
    return change_media(conn, requests(kind).remove, text);
}

}  // namespace wrenlink::agent
