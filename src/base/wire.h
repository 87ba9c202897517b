// Little-endian load/store and the opcodes of the agent protocol (the packet itself: packet.h).
//
// Every integer of the agent protocol is little-endian, in headers and payloads alike. Nothing here
// copies a host struct onto the wire: each field is stored and loaded byte by byte, so the code is
// the same on any host byte order and alignment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace wrenlink::wire {

inline void store_u32(void *to, uint32_t v) noexcept {
    auto *p = static_cast<unsigned char *>(to);
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

inline void store_u64(void *to, uint64_t v) noexcept {
    auto *p = static_cast<unsigned char *>(to);
    store_u32(p, static_cast<uint32_t>(v));
    store_u32(p + 4, static_cast<uint32_t>(v >> 32));
}

inline uint32_t load_u32(const void *from) noexcept {
    const auto *p = static_cast<const unsigned char *>(from);
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

inline uint64_t load_u64(const void *from) noexcept {
    const auto *p = static_cast<const unsigned char *>(from);
    return static_cast<uint64_t>(load_u32(p)) | static_cast<uint64_t>(load_u32(p + 4)) << 32;
}

inline void append_u32(std::string &out, uint32_t v) {
    char b[4];
    store_u32(b, v);
    out.append(b, sizeof b);
}

inline void append_u64(std::string &out, uint64_t v) {
    char b[8];
    store_u64(b, v);
    out.append(b, sizeof b);
}

// Opcodes of the protocol. Access, read directory and close directory have no number of their own
// in the agent's original table; we settled them on 8, 11 and 12 (the free numbers below 14), and
// every agent we talk to uses the same.
namespace op {
constexpr uint32_t kPing = 0;
constexpr uint32_t kFileOpen = 1;
constexpr uint32_t kFileClose = 2;
constexpr uint32_t kFileRead = 3;
constexpr uint32_t kFileWrite = 4;
constexpr uint32_t kFileTell = 5;
constexpr uint32_t kFileSeek = 6;
constexpr uint32_t kFileDelete = 7;
constexpr uint32_t kFileAccess = 8;
constexpr uint32_t kFileStat = 9;
constexpr uint32_t kOpenDir = 10;
constexpr uint32_t kReadDir = 11;
constexpr uint32_t kCloseDir = 12;
constexpr uint32_t kFileMkdir = 13;
constexpr uint32_t kListMusic = 101;
constexpr uint32_t kAddMusic = 102;
constexpr uint32_t kDelMusic = 103;
constexpr uint32_t kListImage = 104;
constexpr uint32_t kAddImage = 105;
constexpr uint32_t kDelImage = 106;
constexpr uint32_t kListVideo = 107;
constexpr uint32_t kAddVideo = 108;
constexpr uint32_t kDelVideo = 109;
constexpr uint32_t kStartScan = 201;
constexpr uint32_t kStopScan = 202;
constexpr uint32_t kResumeScan = 203;  // kept: resume before pause, as agents number them
constexpr uint32_t kPauseScan = 204;
constexpr uint32_t kEventProgress = 205;
constexpr uint32_t kEventCode = 206;
constexpr uint32_t kEventFoundItem = 207;
constexpr uint32_t kEraseFile = 208;
}  // namespace op

// The fixed port of a scan's event connection.
constexpr uint16_t kEventPort = 10244;

}  // namespace wrenlink::wire
