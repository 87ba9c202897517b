#include "agent/wire/packets.h"

#include <cstring>
#include <string_view>

#include "base/crc.h"
#include "base/wire.h"

namespace {

using namespace wrenlink::wire;

enum class Crc { None, OverPayload };

// Header first, then the payload. `length` may count more than the payload carried here (the
// write request's data follows in a send of its own).
std::string compose(uint32_t opcode, std::string_view payload, Crc crc, uint32_t length) {
    PacketHeader h;
    h.magic = kMagic;
    h.length = length;
    h.opcode = opcode;
    h.crc = crc == Crc::OverPayload ? get_crc32(payload.data(), static_cast<uint32_t>(payload.size()), 0) : 0;
    std::string out(kHeaderSize, '\0');
    encode_header(h, out.data());
    out.append(payload);
    return out;
}

std::string compose(uint32_t opcode, std::string_view payload, Crc crc) {
    return compose(opcode, payload, crc, static_cast<uint32_t>(payload.size()));
}

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

std::string make_ping_packet() { return compose(op::kPing, {}, Crc::None); }

std::string make_list_image_packet() { return compose(op::kListImage, {}, Crc::None); }
std::string make_add_image_packet(const char *text) { return compose(op::kAddImage, text_of(text), Crc::None); }
std::string make_del_image_packet(const char *text) { return compose(op::kDelImage, text_of(text), Crc::None); }
std::string make_list_music_packet() { return compose(op::kListMusic, {}, Crc::None); }
std::string make_add_music_packet(const char *text) { return compose(op::kAddMusic, text_of(text), Crc::None); }
std::string make_del_music_packet(const char *text) { return compose(op::kDelMusic, text_of(text), Crc::None); }
std::string make_list_video_packet() { return compose(op::kListVideo, {}, Crc::None); }
std::string make_add_video_packet(const char *text) { return compose(op::kAddVideo, text_of(text), Crc::None); }
std::string make_del_video_packet(const char *text) { return compose(op::kDelVideo, text_of(text), Crc::None); }

// Kept: the text that callers pass to NDDStartScan reaches nothing; the request has no payload.
std::string make_start_scan_packet(const char * /*unused: the request carries no payload*/) {
    return compose(op::kStartScan, {}, Crc::None);
}
std::string make_stop_scan_packet() { return compose(op::kStopScan, {}, Crc::None); }
std::string make_resume_scan_packet() { return compose(op::kResumeScan, {}, Crc::None); }
std::string make_pause_scan_packet() { return compose(op::kPauseScan, {}, Crc::None); }
// Kept: erase sends its text with the NUL but without a CRC, unlike the file family, and the
// catalogue's texts above go with neither; agents that serve callers read them so.
std::string make_erase_file_packet(const char *text) {
    return compose(op::kEraseFile, text_with_nul(text), Crc::None);
}

std::string make_file_open_packet(const char *path, const char *mode) {
    std::string payload(text_with_nul(path));
    payload.append(text_with_nul(mode));
    return compose(op::kFileOpen, payload, Crc::OverPayload);
}
std::string make_file_close_packet(uint32_t remoteId) {
    return compose(op::kFileClose, handle_payload(remoteId), Crc::OverPayload);
}
std::string make_file_read_packet(uint32_t remoteId, int64_t offset, int32_t length) {
    return compose(op::kFileRead, file_block(remoteId, offset, length), Crc::None);
}
std::string make_file_write_packet(uint32_t remoteId, int64_t offset, int32_t length) {
    // `length` counts the block and the data that follows it in the second send.
    const uint32_t total = 16u + static_cast<uint32_t>(length);
    return compose(op::kFileWrite, file_block(remoteId, offset, length), Crc::None, total);
}
std::string make_file_tell_packet(uint32_t remoteId) {
    return compose(op::kFileTell, handle_payload(remoteId), Crc::OverPayload);
}
std::string make_file_seek_packet(uint32_t remoteId, int64_t offset, int32_t whence) {
    return compose(op::kFileSeek, file_block(remoteId, offset, whence), Crc::OverPayload);
}

// Delete is the one path request without the terminator. Kept: agents read its path as `length`
// bytes, and a NUL among them would name another file.
std::string make_file_delete_packet(const char *path) { return compose(op::kFileDelete, text_of(path), Crc::OverPayload); }
std::string make_file_mkdir_packet(const char *path) { return compose(op::kFileMkdir, text_with_nul(path), Crc::OverPayload); }
std::string make_file_acc_packet(const char *path) { return compose(op::kFileAccess, text_with_nul(path), Crc::OverPayload); }
std::string make_file_stat_packet(const char *path) { return compose(op::kFileStat, text_with_nul(path), Crc::OverPayload); }
std::string make_open_dir_packet(const char *path) { return compose(op::kOpenDir, text_with_nul(path), Crc::OverPayload); }
std::string make_read_dir_packet(const char *path) { return compose(op::kReadDir, text_with_nul(path), Crc::OverPayload); }
std::string make_close_dir_packet(const char *path) { return compose(op::kCloseDir, text_with_nul(path), Crc::OverPayload); }
