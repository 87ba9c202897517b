// The phone's media catalogue: list, add and del for images, music and videos. The nine
// operations are two procedures that differ only in their packet. None of them takes the
// connection's lock or writes sendError: a failed exchange leaves the way open for the next one.
#include "Wrenlink/MediaBean.h"
#include "Wrenlink/agent_reply.h"
#include "Wrenlink/packets.h"

namespace {

using namespace wrenlink::agent;

AgentStatus list_media(NetConnection *conn, std::string (*make)(), __MediaBean *head, uint32_t *count) {
    return guarded_status([&]() -> AgentStatus {
        if (conn == nullptr || head == nullptr || count == nullptr) return EINVAL;
        wrenlink::wire::PacketHeader reply;
        if (const AgentStatus r = control_request(conn, make(), reply, SendErrorRule::Untouched)) return r;
        // A refusal's payload, if any, stays in the stream.
        if (reply.status != 0) return reply.status;
        AgentStatus parsed = 0;
        const uint32_t items = ReceiveMediaBeans(conn, head, reply.length, &parsed);
        if (parsed != 0) return parsed;
        *count = items;
        return 0;
    });
}

AgentStatus change_media(NetConnection *conn, std::string (*make)(const char *), const char *text) {
    return guarded_status([&]() -> AgentStatus {
        if (conn == nullptr || text == nullptr) return EINVAL;
        wrenlink::wire::PacketHeader reply;
        if (const AgentStatus r = control_request(conn, make(text), reply, SendErrorRule::Untouched)) return r;
        return reply.status;
    });
}

}  // namespace

extern "C" {

AgentStatus NMCListImages(NetConnection *conn, __MediaBean *head, uint32_t *count) {
    return list_media(conn, make_list_image_packet, head, count);
}
AgentStatus NMCAddImage(NetConnection *conn, const char *text) { return change_media(conn, make_add_image_packet, text); }
AgentStatus NMCDelImage(NetConnection *conn, const char *text) { return change_media(conn, make_del_image_packet, text); }

AgentStatus NMCListMusics(NetConnection *conn, __MediaBean *head, uint32_t *count) {
    return list_media(conn, make_list_music_packet, head, count);
}
AgentStatus NMCAddMusic(NetConnection *conn, const char *text) { return change_media(conn, make_add_music_packet, text); }
AgentStatus NMCDelMusic(NetConnection *conn, const char *text) { return change_media(conn, make_del_music_packet, text); }

AgentStatus NMCListVideo(NetConnection *conn, __MediaBean *head, uint32_t *count) {
    return list_media(conn, make_list_video_packet, head, count);
}
AgentStatus NMCAddIVideo(NetConnection *conn, const char *text) { return change_media(conn, make_add_video_packet, text); }
AgentStatus NMCDelIVideo(NetConnection *conn, const char *text) { return change_media(conn, make_del_video_packet, text); }

}  // extern "C"
