#include "agent/wire/packets.h"

#include <cstring>
#include <string_view>

#include "base/packet.h"

namespace {

using namespace wrenlink::wire;

std::string_view text_of(const char *text) { return text ? std::string_view(text) : std::string_view(); }

// The text and its terminator.
std::string_view text_with_nul(const char *text) {
    static const char empty[1] = {'\0'};
    return text ? std::string_view(text, std::strlen(text) + 1) : std::string_view(empty, 1);
}

std::string file_block(uint32_t remoteId, int64_t offset, int32_t lengthOrWhence) {
    std::string block;
    block.reserve(16);
    append_u32(block, remoteId);
    append_u64(block, static_cast<uint64_t>(offset));
    append_u32(block, static_cast<uint32_t>(lengthOrWhence));
    return block;
}

std::string handle_payload(uint32_t remoteId) {
    std::string payload;
    append_u32(payload, remoteId);
    return payload;
}

}  // namespace

std::string make_ping_packet() { return packet(op::kPing, {}, Crc::Zero); }

std::string make_list_image_packet() { return packet(op::kListImage, {}, Crc::Zero); }
std::string make_add_image_packet(const char *text) { return packet(op::kAddImage, text_of(text), Crc::Zero); }
std::string make_del_image_packet(const char *text) { return packet(op::kDelImage, text_of(text), Crc::Zero); }
std::string make_list_music_packet() { return packet(op::kListMusic, {}, Crc::Zero); }
std::string make_add_music_packet(const char *text) { return packet(op::kAddMusic, text_of(text), Crc::Zero); }
std::string make_del_music_packet(const char *text) { return packet(op::kDelMusic, text_of(text), Crc::Zero); }
std::string make_list_video_packet() { return packet(op::kListVideo, {}, Crc::Zero); }
std::string make_add_video_packet(const char *text) { return packet(op::kAddVideo, text_of(text), Crc::Zero); }
std::string make_del_video_packet(const char *text) { return packet(op::kDelVideo, text_of(text), Crc::Zero); }

// Kept: the text that callers pass to NDDStartScan reaches nothing; the request has no payload.
std::string make_start_scan_packet(const char * /*unused: the request carries no payload*/) {
    return packet(op::kStartScan, {}, Crc::Zero);
}
std::string make_stop_scan_packet() { return packet(op::kStopScan, {}, Crc::Zero); }
std::string make_resume_scan_packet() { return packet(op::kResumeScan, {}, Crc::Zero); }
std::string make_pause_scan_packet() { return packet(op::kPauseScan, {}, Crc::Zero); }
// Kept: erase sends its text with the NUL but without a CRC, unlike the file family, and the
// catalogue's texts above go with neither; agents that serve callers read them so.
std::string make_erase_file_packet(const char *text) {
    return packet(op::kEraseFile, text_with_nul(text), Crc::Zero);
}

std::string make_file_open_packet(const char *path, const char *mode) {
    std::string payload(text_with_nul(path));
    payload.append(text_with_nul(mode));
    return packet(op::kFileOpen, payload, Crc::OverPayload);
}
std::string make_file_close_packet(uint32_t remoteId) {
    return packet(op::kFileClose, handle_payload(remoteId), Crc::OverPayload);
}
std::string make_file_read_packet(uint32_t remoteId, int64_t offset, int32_t length) {
    return packet(op::kFileRead, file_block(remoteId, offset, length), Crc::Zero);
}
std::string make_file_write_packet(uint32_t remoteId, int64_t offset, int32_t length) {
    // `length` counts the block and the data that follows it in the second send.
    const uint32_t total = 16u + static_cast<uint32_t>(length);
    return packet_header(op::kFileWrite, total) + file_block(remoteId, offset, length);
}
std::string make_file_tell_packet(uint32_t remoteId) {
    return packet(op::kFileTell, handle_payload(remoteId), Crc::OverPayload);
}
std::string make_file_seek_packet(uint32_t remoteId, int64_t offset, int32_t whence) {
    return packet(op::kFileSeek, file_block(remoteId, offset, whence), Crc::OverPayload);
}

// Delete is the one path request without the terminator. Kept: agents read its path as `length`
// bytes, and a NUL among them would name another file.
std::string make_file_delete_packet(const char *path) { return packet(op::kFileDelete, text_of(path), Crc::OverPayload); }
std::string make_file_mkdir_packet(const char *path) { return packet(op::kFileMkdir, text_with_nul(path), Crc::OverPayload); }
std::string make_file_acc_packet(const char *path) { return packet(op::kFileAccess, text_with_nul(path), Crc::OverPayload); }
std::string make_file_stat_packet(const char *path) { return packet(op::kFileStat, text_with_nul(path), Crc::OverPayload); }
std::string make_open_dir_packet(const char *path) { return packet(op::kOpenDir, text_with_nul(path), Crc::OverPayload); }
std::string make_read_dir_packet(const char *path) { return packet(op::kReadDir, text_with_nul(path), Crc::OverPayload); }
std::string make_close_dir_packet(const char *path) { return packet(op::kCloseDir, text_with_nul(path), Crc::OverPayload); }
