// The media catalogue.
#include "Wrenlink/Wrenlink.h"
#include "agent/services/media.h"
#include "exports/boundary.h"

using namespace wrenlink;
using agent::MediaKind;

extern "C" {

AgentStatus NMCListImages(NetConnection *conn, __MediaBean *head, uint32_t *count) {
    return guarded_status([&] { return agent::list_media(conn, MediaKind::Images, head, count); });
}
AgentStatus NMCAddImage(NetConnection *conn, const char *text) {
    return guarded_status([&] { return agent::add_media(conn, MediaKind::Images, text); });
}
AgentStatus NMCDelImage(NetConnection *conn, const char *text) {
    return guarded_status([&] { return agent::delete_media(conn, MediaKind::Images, text); });
}

AgentStatus NMCListMusics(NetConnection *conn, __MediaBean *head, uint32_t *count) {
    return guarded_status([&] { return agent::list_media(conn, MediaKind::Music, head, count); });
}
AgentStatus NMCAddMusic(NetConnection *conn, const char *text) {
    return guarded_status([&] { return agent::add_media(conn, MediaKind::Music, text); });
}
AgentStatus NMCDelMusic(NetConnection *conn, const char *text) {
    return guarded_status([&] { return agent::delete_media(conn, MediaKind::Music, text); });
}

AgentStatus NMCListVideo(NetConnection *conn, __MediaBean *head, uint32_t *count) {
    return guarded_status([&] { return agent::list_media(conn, MediaKind::Videos, head, count); });
}
AgentStatus NMCAddIVideo(NetConnection *conn, const char *text) {
    return guarded_status([&] { return agent::add_media(conn, MediaKind::Videos, text); });
}
AgentStatus NMCDelIVideo(NetConnection *conn, const char *text) {
    return guarded_status([&] { return agent::delete_media(conn, MediaKind::Videos, text); });
}

}  // extern "C"
