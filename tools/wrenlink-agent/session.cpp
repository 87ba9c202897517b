#include "session.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>

#include "phone_path.h"

namespace wrenlink::reference_agent {

namespace op = wire::op;

namespace {

// The requests that carry a CRC of their payload; the others leave `crc` at 0.
bool carries_crc(uint32_t opcode) {
    switch (opcode) {
        case op::kFileOpen: case op::kFileClose: case op::kFileTell: case op::kFileSeek:
        case op::kFileDelete: case op::kFileAccess: case op::kFileStat: case op::kOpenDir:
        case op::kReadDir: case op::kCloseDir: case op::kFileMkdir:
            return true;
        default:
            return false;
    }
}

std::string_view until_nul(std::string_view text) { return text.substr(0, text.find('\0')); }

// open(2) flags of an fopen(3) mode: r, w or a, then any of + b t x e. -1 for anything else.
int open_flags_of(std::string_view mode) {
    if (mode.empty()) return -1;
    int flags = 0;
    switch (mode[0]) {
        case 'r': flags = O_RDONLY; break;
        case 'w': flags = O_WRONLY | O_CREAT | O_TRUNC; break;
        case 'a': flags = O_WRONLY | O_CREAT | O_APPEND; break;
        default: return -1;
    }
    for (const char c : mode.substr(1)) {
        switch (c) {
            case '+': flags = (flags & ~O_WRONLY) | O_RDWR; break;
            case 'b': case 't': case 'e': break;
            case 'x':
                if (mode[0] == 'r') return -1;
                flags |= O_EXCL;
                break;
            default: return -1;
        }
    }
    return flags;
}

struct FileBlock {
    uint32_t id;
    int64_t offset;
    int32_t count;  // read and write: bytes; seek: whence
};

FileBlock file_block_of(std::string_view payload) {
    return FileBlock{wire::load_u32(payload.data()), static_cast<int64_t>(wire::load_u64(payload.data() + 4)),
                     static_cast<int32_t>(wire::load_u32(payload.data() + 12))};
}

bool write_all_to_file(int fd, const char *data, std::size_t n) {
    while (n > 0) {
        const ssize_t w = ::write(fd, data, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += w;
        n -= static_cast<std::size_t>(w);
    }
    return true;
}

std::string position_payload(off_t position) {
    std::string out;
    put_u64(out, static_cast<uint64_t>(position));
    return out;
}

void put_file_info(std::string &out, const FileInfo &info) {
    put_u32(out, info.mode);
    put_u64(out, info.size);
    put_u64(out, static_cast<uint64_t>(info.mtime));
}

std::optional<MediaKind> media_kind_of_opcode(uint32_t opcode) {
    if (opcode >= op::kListMusic && opcode <= op::kDelMusic) return MediaKind::Music;
    if (opcode >= op::kListImage && opcode <= op::kDelImage) return MediaKind::Image;
    if (opcode >= op::kListVideo && opcode <= op::kDelVideo) return MediaKind::Video;
    return std::nullopt;
}

// The key of an open directory: its normalised phone path.
std::optional<std::string> directory_key(std::string_view path) { return tools::normal_phone_path(path); }

constexpr const char *kMediaNames[kMediaKinds] = {"image", "music", "video"};

}  // namespace

Session::Session(int number, UniqueFd socket, Services services)
    : tag_(connection_tag(number)), socket_(std::move(socket)), services_(services) {}

void Session::interrupt() {
    std::lock_guard lock(socket_mutex_);
    if (socket_) (void)::shutdown(socket_.get(), SHUT_RDWR);
}

void Session::run() {
    while (serve_one()) {
    }
    files_.clear();
    dirs_.clear();
    {
        // Closed now, not when the agent reaps the thread: the peer sees the end at once.
        std::lock_guard lock(socket_mutex_);
        socket_.reset();
    }
    services_.log.detail(tag_ + " closed");
    finished_ = true;
}

void Session::log_request(std::string_view what, uint32_t status) const {
    if (services_.log.verbose())
        services_.log.say(tag_ + " " + std::string(what) + " -> " + describe_status(status));
}

bool Session::serve_one() {
    unsigned char raw[wire::kHeaderSize];
    if (!read_exact(socket_.get(), raw, sizeof raw)) return false;
    wire::PacketHeader header;
    if (!wire::read_header(raw, header)) {
        services_.log.say(tag_ + " request with a wrong magic; connection closed");
        return false;
    }
    if (header.opcode == op::kFileWrite) return serve_write(header);
    if (header.length > kMaxRequestPayload) {
        services_.log.say(tag_ + " request " + std::to_string(header.opcode) + " of " +
                          std::to_string(header.length) + " bytes is too long; connection closed");
        return false;
    }
    std::string payload(header.length, '\0');
    if (!read_exact(socket_.get(), payload.data(), payload.size())) return false;

    if (header.opcode == op::kPing) {
        log_request("ping", 0);
        static constexpr unsigned char kPong[4] = {0, 0, 0, 1};
        return send_all(socket_.get(), kPong, sizeof kPong);
    }
    what_.clear();
    Reply reply;
    if (carries_crc(header.opcode) && wire::payload_crc(payload) != header.crc) {
        what_ = "request " + std::to_string(header.opcode) + " with a wrong CRC";
        reply.status = EBADMSG;
    } else {
        reply = dispatch(header, payload);
    }
    // A refusal carries no payload: on open, the library would take it for the next header.
    if (reply.status != 0) reply.payload.clear();
    log_request(what_, reply.status);
    return send_all(socket_.get(), wire::packet(header.opcode, reply.payload, reply.crc, reply.status));
}

Session::Reply Session::dispatch(const wire::PacketHeader &header, std::string_view payload) {
    const std::string_view text = until_nul(payload);
    if (const auto kind = media_kind_of_opcode(header.opcode)) {
        const char *name = kMediaNames[static_cast<int>(*kind)];
        switch ((header.opcode - op::kListMusic) % 3) {
            case 0:
                what_ = std::string("list ") + name;
                return media_list(*kind);
            case 1:
                what_ = std::string("add ") + name + " " + std::string(text);
                return Reply{static_cast<uint32_t>(services_.catalogue.add(*kind, text)), {}, Crc::OverPayload};
            default:
                what_ = std::string("del ") + name + " " + std::string(text);
                return Reply{static_cast<uint32_t>(services_.catalogue.remove(*kind, text)), {}, Crc::OverPayload};
        }
    }
    auto status_only = [](int status) { return Reply{static_cast<uint32_t>(status), {}, Crc::OverPayload}; };
    switch (header.opcode) {
        case op::kFileOpen: return file_open(payload);
        case op::kFileClose: return file_close(payload);
        case op::kFileRead: return file_read(payload);
        case op::kFileTell: return file_tell(payload);
        case op::kFileSeek: return file_seek(payload);
        case op::kFileDelete: return path_delete(text);
        case op::kFileAccess: return path_access(text);
        case op::kFileStat: return path_stat(text);
        case op::kOpenDir: return dir_open(text);
        case op::kReadDir: return dir_read(text);
        case op::kCloseDir: return dir_close(text);
        case op::kFileMkdir: return path_mkdir(text);
        case op::kStartScan: what_ = "scan start"; return status_only(services_.scanner.start());
        case op::kStopScan: what_ = "scan stop"; return status_only(services_.scanner.stop());
        case op::kResumeScan: what_ = "scan resume"; return status_only(services_.scanner.resume());
        case op::kPauseScan: what_ = "scan pause"; return status_only(services_.scanner.pause());
        case op::kEraseFile: return erase_file(text);
        default:
            what_ = "unknown request " + std::to_string(header.opcode);
            return status_only(ENOSYS);
    }
}

int Session::fd_of(uint32_t id) const {
    const auto it = files_.find(id);
    return it == files_.end() ? -1 : it->second.get();
}

Session::Reply Session::file_open(std::string_view payload) {
    const std::size_t nul = payload.find('\0');
    const std::string_view path = payload.substr(0, nul);
    const std::string_view mode = nul == std::string_view::npos ? std::string_view() : until_nul(payload.substr(nul + 1));
    what_ = "open " + std::string(path) + " " + std::string(mode);
    if (nul == std::string_view::npos || nul + 1 >= payload.size()) return Reply{EINVAL, {}, Crc::OverPayload};
    const int flags = open_flags_of(mode);
    if (flags < 0) return Reply{EINVAL, {}, Crc::OverPayload};
    if (files_.size() >= kMaxOpenFiles) return Reply{EMFILE, {}, Crc::OverPayload};
    const Resolved r = services_.sandbox.resolve(path, Leaf::Follow);
    if (r.error != 0) return Reply{static_cast<uint32_t>(r.error), {}, Crc::OverPayload};

    // Non-blocking until it is known to be a regular file: a FIFO would hold the open for ever.
    UniqueFd fd(::open(r.host.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
    if (!fd) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    if (S_ISDIR(st.st_mode)) return Reply{EISDIR, {}, Crc::OverPayload};
    if (!S_ISREG(st.st_mode)) return Reply{EPERM, {}, Crc::OverPayload};
    (void)::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);

    while (next_file_id_ == 0 || files_.count(next_file_id_) != 0) ++next_file_id_;
    const uint32_t id = next_file_id_++;
    files_.emplace(id, std::move(fd));
    what_ += " = id " + std::to_string(id);
    std::string out;
    put_u32(out, id);
    return Reply{0, out, Crc::OverPayload};
}

Session::Reply Session::file_close(std::string_view payload) {
    if (payload.size() < 4) return Reply{EINVAL, {}, Crc::OverPayload};
    const uint32_t id = wire::load_u32(payload.data());
    what_ = "close id " + std::to_string(id);
    const auto it = files_.find(id);
    if (it == files_.end()) return Reply{EBADF, {}, Crc::OverPayload};
    const int fd = it->second.release();
    files_.erase(it);
    return Reply{::close(fd) == 0 ? 0u : static_cast<uint32_t>(errno), {}, Crc::OverPayload};
}

Session::Reply Session::file_read(std::string_view payload) {
    if (payload.size() < 16) return Reply{EINVAL, {}, Crc::Zero};
    const FileBlock b = file_block_of(payload);
    what_ = "read id " + std::to_string(b.id) + " at " + std::to_string(b.offset) + " count " + std::to_string(b.count);
    const int fd = fd_of(b.id);
    if (fd < 0) return Reply{EBADF, {}, Crc::Zero};
    if (b.offset < 0 || b.count < 0) return Reply{EINVAL, {}, Crc::Zero};
    if (::lseek(fd, static_cast<off_t>(b.offset), SEEK_SET) < 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::Zero};
    std::string data(static_cast<std::size_t>(std::min(b.count, kMaxReadReply)), '\0');
    std::size_t got = 0;
    while (got < data.size()) {
        const ssize_t n = ::read(fd, data.data() + got, data.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::Zero};
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    data.resize(got);
    what_ += " = " + std::to_string(got) + " bytes";
    return Reply{0, std::move(data), Crc::Zero};
}

bool Session::serve_write(const wire::PacketHeader &header) {
    if (header.length < 16 || header.length - 16 > static_cast<uint32_t>(INT32_MAX)) {
        services_.log.say(tag_ + " write request of " + std::to_string(header.length) +
                          " bytes cannot be framed; connection closed");
        return false;
    }
    char raw[16];
    if (!read_exact(socket_.get(), raw, sizeof raw)) return false;
    const FileBlock b = file_block_of(std::string_view(raw, sizeof raw));
    const uint32_t data_length = header.length - 16;
    what_ = "write id " + std::to_string(b.id) + " at " + std::to_string(b.offset) + " count " +
            std::to_string(data_length);

    const int fd = fd_of(b.id);
    int status = 0;
    if (fd < 0) {
        status = EBADF;
    } else if (b.offset < 0 || b.count < 0 || static_cast<uint32_t>(b.count) != data_length) {
        status = EINVAL;
    } else if (::lseek(fd, static_cast<off_t>(b.offset), SEEK_SET) < 0) {
        status = errno;
    }
    // The data is taken in whatever happens, so that the stream stays in step.
    std::vector<char> chunk(std::min<uint32_t>(data_length, 256 * 1024));
    for (uint32_t left = data_length; left > 0;) {
        const uint32_t take = std::min<uint32_t>(left, static_cast<uint32_t>(chunk.size()));
        if (!read_exact(socket_.get(), chunk.data(), take)) return false;
        if (status == 0 && !write_all_to_file(fd, chunk.data(), take)) status = errno;
        left -= take;
    }
    log_request(what_, static_cast<uint32_t>(status));
    return send_all(socket_.get(), wire::packet(header.opcode, {}, Crc::OverPayload, static_cast<uint32_t>(status)));
}

Session::Reply Session::file_tell(std::string_view payload) {
    if (payload.size() < 4) return Reply{EINVAL, {}, Crc::OverPayload};
    const uint32_t id = wire::load_u32(payload.data());
    what_ = "tell id " + std::to_string(id);
    const int fd = fd_of(id);
    if (fd < 0) return Reply{EBADF, {}, Crc::OverPayload};
    const off_t at = ::lseek(fd, 0, SEEK_CUR);
    if (at < 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    what_ += " = " + std::to_string(at);
    return Reply{0, position_payload(at), Crc::OverPayload};
}

Session::Reply Session::file_seek(std::string_view payload) {
    if (payload.size() < 16) return Reply{EINVAL, {}, Crc::OverPayload};
    const FileBlock b = file_block_of(payload);
    what_ = "seek id " + std::to_string(b.id) + " to " + std::to_string(b.offset) + " whence " + std::to_string(b.count);
    const int fd = fd_of(b.id);
    if (fd < 0) return Reply{EBADF, {}, Crc::OverPayload};
    if (b.count != SEEK_SET && b.count != SEEK_CUR && b.count != SEEK_END) return Reply{EINVAL, {}, Crc::OverPayload};
    const off_t at = ::lseek(fd, static_cast<off_t>(b.offset), b.count);
    if (at < 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    what_ += " = " + std::to_string(at);
    return Reply{0, position_payload(at), Crc::OverPayload};
}

Session::Reply Session::path_delete(std::string_view path) {
    what_ = "delete " + std::string(path);
    const Resolved r = services_.sandbox.resolve(path, Leaf::NoFollow);
    if (r.error != 0) return Reply{static_cast<uint32_t>(r.error), {}, Crc::OverPayload};
    if (r.is_root) return Reply{static_cast<uint32_t>(kOutsideRoot), {}, Crc::OverPayload};
    struct stat st {};
    if (::lstat(r.host.c_str(), &st) != 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    const int done = S_ISDIR(st.st_mode) ? ::rmdir(r.host.c_str()) : ::unlink(r.host.c_str());
    return Reply{done == 0 ? 0u : static_cast<uint32_t>(errno), {}, Crc::OverPayload};
}

Session::Reply Session::erase_file(std::string_view path) {
    what_ = "erase " + std::string(path);
    const Resolved r = services_.sandbox.resolve(path, Leaf::NoFollow);
    if (r.error != 0) return Reply{static_cast<uint32_t>(r.error), {}, Crc::OverPayload};
    struct stat st {};
    if (::lstat(r.host.c_str(), &st) != 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    if (S_ISDIR(st.st_mode)) return Reply{EISDIR, {}, Crc::OverPayload};
    return Reply{::unlink(r.host.c_str()) == 0 ? 0u : static_cast<uint32_t>(errno), {}, Crc::OverPayload};
}

Session::Reply Session::path_mkdir(std::string_view path) {
    what_ = "mkdir " + std::string(path);
    const Resolved r = services_.sandbox.resolve(path, Leaf::NoFollow);
    if (r.error != 0) return Reply{static_cast<uint32_t>(r.error), {}, Crc::OverPayload};
    if (r.is_root) return Reply{EEXIST, {}, Crc::OverPayload};
    return Reply{::mkdir(r.host.c_str(), 0755) == 0 ? 0u : static_cast<uint32_t>(errno), {}, Crc::OverPayload};
}

Session::Reply Session::path_access(std::string_view path) {
    what_ = "access " + std::string(path);
    const Resolved r = services_.sandbox.resolve(path, Leaf::Follow);
    if (r.error != 0) return Reply{static_cast<uint32_t>(r.error), {}, Crc::OverPayload};
    return Reply{::access(r.host.c_str(), F_OK) == 0 ? 0u : static_cast<uint32_t>(errno), {}, Crc::OverPayload};
}

Session::Reply Session::path_stat(std::string_view path) {
    what_ = "stat " + std::string(path);
    const Resolved r = services_.sandbox.resolve(path, Leaf::Follow);
    if (r.error != 0) return Reply{static_cast<uint32_t>(r.error), {}, Crc::OverPayload};
    struct stat st {};
    if (::stat(r.host.c_str(), &st) != 0) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    std::string out;
    put_file_info(out, file_info(r.phone, st));
    return Reply{0, out, Crc::OverPayload};
}

Session::Reply Session::dir_open(std::string_view path) {
    what_ = "opendir " + std::string(path);
    const Resolved r = services_.sandbox.resolve(path, Leaf::Follow);
    if (r.error != 0) return Reply{static_cast<uint32_t>(r.error), {}, Crc::OverPayload};
    if (dirs_.size() >= kMaxOpenDirs && dirs_.count(r.phone) == 0) return Reply{EMFILE, {}, Crc::OverPayload};
    DirCursor cursor;
    if (!list_directory(r.host, cursor.entries)) return Reply{static_cast<uint32_t>(errno), {}, Crc::OverPayload};
    std::string out;
    put_u32(out, static_cast<uint32_t>(cursor.entries.size()));
    what_ += " = " + std::to_string(cursor.entries.size()) + " entries";
    dirs_[r.phone] = std::move(cursor);
    return Reply{0, out, Crc::OverPayload};
}

Session::Reply Session::dir_read(std::string_view path) {
    what_ = "readdir " + std::string(path);
    const auto key = directory_key(path);
    const auto it = key ? dirs_.find(*key) : dirs_.end();
    if (it == dirs_.end()) return Reply{EBADF, {}, Crc::OverPayload};
    DirCursor &cursor = it->second;
    std::string out;
    while (cursor.next < cursor.entries.size() && out.size() < kDirBatchBytes) {
        const DirEntry &e = cursor.entries[cursor.next++];
        put_file_info(out, e.info);
        put_text(out, e.name);
    }
    return Reply{0, out, Crc::OverPayload};
}

Session::Reply Session::dir_close(std::string_view path) {
    what_ = "closedir " + std::string(path);
    const auto key = directory_key(path);
    if (!key || dirs_.erase(*key) == 0) return Reply{EBADF, {}, Crc::OverPayload};
    return Reply{0, {}, Crc::OverPayload};
}

Session::Reply Session::media_list(MediaKind kind) {
    const auto items = services_.catalogue.list(kind);
    what_ += " = " + std::to_string(items.size()) + " items";
    return Reply{0, encode_media_list(items), Crc::OverPayload};
}

}  // namespace wrenlink::reference_agent
