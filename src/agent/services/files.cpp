#include "agent/services/files.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/services/file_exchange.h"
#include "agent/wire/packets.h"
#include "base/platform.h"

namespace wrenlink::agent {

using namespace nfc;
using wire::PacketHeader;

namespace {

// Printed when the first send of a write comes back short ("the buffer can't hold it"). Kept, in
// its own words, for the callers' logs that have always shown it; the write goes on regardless.
constexpr const char *kWriteShortLine = "\xe7\xbc\x93\xe5\x86\xb2\xe5\x8c\xba\xe6\x94\xbe\xe4\xb8\x8d\xe4\xb8\x8b\xe5\x95\xa6";

}  // namespace

AgentStatus open_file(NetConnection *conn, const char *path, const char *mode, NFCFileRef **ref) {
    if (conn == nullptr || ref == nullptr) return EINVAL;
    *ref = nullptr;
    if (path == nullptr || mode == nullptr) return EINVAL;
    if (const AgentStatus stuck = gate(conn)) return stuck;
    const std::string packet = make_file_open_packet(path, mode);
    // A failed open leaves the connection usable: the next open sends its request again.
    return exchange(conn, Sticky::No, [&](ReplyReader &reply) -> Exit {
        PacketHeader h;
        PayloadHead payload;
        if (Step s = request(reply, packet, h)) return *s;
        if (h.status != 0) return answered(h.status);  // a refusal carries no payload
        if (Step s = step(reply.take_verified_head(h.crc, payload))) return *s;
        if (payload.size < 4) return out_of_step(AgentShortPayload);  // never stored by an open
        auto *handle = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
        if (handle == nullptr) return answered(ENOMEM);
        *handle = NFCFileRef{wire::load_u32(payload.bytes), 0};
        *ref = handle;
        return answered(0);
    });
}

AgentStatus read_file(NetConnection *conn, NFCFileRef *ref, void *buffer, int32_t *length) {
    if (conn == nullptr || ref == nullptr || length == nullptr || (buffer == nullptr && *length > 0)) return EINVAL;
    if (const AgentStatus stuck = gate(conn)) return stuck;
    const int32_t asked = *length;
    const std::string packet = make_file_read_packet(ref->remoteId, ref->position, asked);
    return exchange(conn, Sticky::Yes, [&](ReplyReader &reply) -> Exit {
        PacketHeader h;
        Payload payload;
        if (Step s = request(reply, packet, h)) return *s;
        // The payload is consumed whatever the status, so the stream stays in step. More than
        // asked would overrun `buffer`: refused before anything is allocated for it.
        const Took took = reply.take_payload(static_cast<uint32_t>(asked < 0 ? 0 : asked), payload);
        if (took == Took::TooLong) return answered(h.status != 0 ? h.status : EMSGSIZE);
        if (Step s = step(took)) return *s;
        if (h.status != 0) return answered(h.status);
        if (payload.size > 0) std::memcpy(buffer, payload.data(), payload.size);
        *length = static_cast<int32_t>(payload.size);
        ref->position += static_cast<int64_t>(payload.size);
        return answered(0);
    });
}

AgentStatus write_file(NetConnection *conn, NFCFileRef *ref, const void *data, int32_t length) {
    if (conn == nullptr || ref == nullptr || (data == nullptr && length > 0)) return EINVAL;
    if (const AgentStatus stuck = gate(conn)) return stuck;
    const std::string packet = make_file_write_packet(ref->remoteId, ref->position, length);
    const AgentStatus result = exchange(conn, Sticky::Yes, [&](ReplyReader &reply) -> Exit {
        // Header and block first, then the data straight from the caller's memory, under one lock.
        // The header is held back for the data where the platform allows, so that the agent gets
        // both in one segment rather than waking for 36 bytes and again for the rest.
        const int more = length > 0 ? platform::more_follows_flag() : 0;
        const int32_t sent = reply.send(packet.data(), static_cast<int32_t>(packet.size()), more);
        if (sent != static_cast<int32_t>(packet.size())) std::puts(kWriteShortLine);
        if (sent < 0) return transfer_failed();
        if (Step s = send_request(reply, data, length)) return *s;
        PacketHeader h;
        const Took took = reply.take_header(h);
        if (took == Took::Broken) return transfer_failed(AgentShortPayload);
        if (Step s = step(took)) return *s;
        return answered(h.status);
    });
    // The reply carries no count: what was asked is taken as written.
    if (result == 0) ref->position += length;
    return result;
}

AgentStatus tell_file(NetConnection *conn, NFCFileRef *ref, int64_t *agentPosition) {
    if (conn == nullptr || ref == nullptr || agentPosition == nullptr) return EINVAL;
    if (const AgentStatus stuck = gate(conn)) return stuck;
    const std::string packet = make_file_tell_packet(ref->remoteId);
    return exchange(conn, Sticky::Yes, [&](ReplyReader &reply) -> Exit {
        PacketHeader h;
        PayloadHead payload;
        if (Step s = request(reply, packet, h)) return *s;
        if (Step s = step(reply.take_verified_head(h.crc, payload))) return *s;
        if (h.status != 0) return answered(h.status);
        if (payload.size < 8) return out_of_step(AgentShortPayload);
        *agentPosition = static_cast<int64_t>(wire::load_u64(payload.bytes));
        return answered(0);
    });
}

AgentStatus seek_file(NetConnection *conn, NFCFileRef *ref, int64_t offset, int32_t whence) {
    if (conn == nullptr || ref == nullptr) return EINVAL;
    if (const AgentStatus stuck = gate(conn)) return stuck;
    const std::string packet = make_file_seek_packet(ref->remoteId, offset, whence);
    const AgentStatus result = exchange(conn, Sticky::Yes, [&](ReplyReader &reply) -> Exit {
        PacketHeader h;
        PayloadHead payload;
        if (Step s = request(reply, packet, h)) return *s;
        if (Step s = step(reply.take_verified_head(h.crc, payload))) return *s;
        return answered(h.status);
    });
    if (result != 0) return result;
    // The lock is free again; a tell, which takes it anew, tells where the move landed. Should
    // it fail, the offset stands: the library knows nothing of whence.
    int64_t position = offset;
    (void)tell_file(conn, ref, &position);
    ref->position = position;
    return 0;
}

AgentStatus close_file(NetConnection *conn, NFCFileRef *ref) {
    if (conn == nullptr || ref == nullptr) return EINVAL;
    if (const AgentStatus stuck = gate(conn)) return stuck;
    // Gone from here on, whatever comes: the caller can't tell a failure to build the request
    // from the agent's answer, and holds a dead pointer after either.
    const uint32_t remoteId = ref->remoteId;
    std::free(ref);
    const std::string packet = make_file_close_packet(remoteId);
    return exchange(conn, Sticky::Yes, [&](ReplyReader &reply) -> Exit {
        PacketHeader h;
        if (Step s = request(reply, packet, h)) return *s;
        return answered(h.status);
    });
}

namespace {

// Delete, mkdir and access: a path out, a bare header back.
AgentStatus path_request(NetConnection *conn, std::string (*make)(const char *), const char *path) {
    if (conn == nullptr || path == nullptr) return EINVAL;
    if (const AgentStatus stuck = gate(conn)) return stuck;
    const std::string packet = make(path);
    return exchange(conn, Sticky::Yes, [&](ReplyReader &reply) -> Exit {
        PacketHeader h;
        if (Step s = request(reply, packet, h)) return *s;
        return answered(h.status);
    });
}

}  // namespace

AgentStatus delete_path(NetConnection *conn, const char *path) {
    return path_request(conn, make_file_delete_packet, path);
}
AgentStatus make_directory(NetConnection *conn, const char *path) {
    return path_request(conn, make_file_mkdir_packet, path);
}
AgentStatus access_path(NetConnection *conn, const char *path) { return path_request(conn, make_file_acc_packet, path); }

}  // namespace wrenlink::agent
