// "sync:": the file transfers of push, pull and install. Requests and replies are 8-byte records
// (four letters and a little-endian number) with a path or data behind them; they arrive cut
// anywhere by the transport, so the service reads them as a byte stream.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/unique_fd.h"
#include "base/wire.h"
#include "base/io.h"
#include "log.h"
#include "message.h"
#include "phone.h"
#include "services.h"
#include "transport.h"

namespace phone {

namespace {

using wrenlink::wire::append_u32;
using wrenlink::wire::load_u32;

constexpr uint32_t kStat = command_word("STAT");
constexpr uint32_t kList = command_word("LIST");
constexpr uint32_t kSend = command_word("SEND");
constexpr uint32_t kRecv = command_word("RECV");
constexpr uint32_t kQuit = command_word("QUIT");
constexpr uint32_t kData = command_word("DATA");
constexpr uint32_t kDone = command_word("DONE");
constexpr uint32_t kDent = command_word("DENT");
constexpr uint32_t kOkayReply = command_word("OKAY");
constexpr uint32_t kFail = command_word("FAIL");

constexpr uint32_t kMaxPathLength = 1024;
constexpr uint32_t kMaxDataChunk = 64 * 1024;
// How much of a file goes out in one write: fewer round trips than one record at a time.
constexpr std::size_t kBatch = 4 * kMaxDataChunk;

// The server's chunks as one byte stream.
class Reader {
public:
    explicit Reader(Stream &stream) : stream_(stream) {}
    bool read(std::string &to, std::size_t size) {
        to.clear();
        while (to.size() < size) {
            if (pos_ == buffer_.size()) {
                auto chunk = stream_.read();
                if (!chunk) return false;
                buffer_ = std::move(*chunk);
                pos_ = 0;
            }
            const std::size_t take = std::min(size - to.size(), buffer_.size() - pos_);
            to.append(buffer_, pos_, take);
            pos_ += take;
        }
        return true;
    }
    bool read_record(uint32_t &id, uint32_t &value) {
        std::string raw;
        if (!read(raw, 8)) return false;
        id = load_u32(raw.data());
        value = load_u32(raw.data() + 4);
        return true;
    }

private:
    Stream &stream_;
    std::string buffer_;
    std::size_t pos_ = 0;
};

void append_record(std::string &out, uint32_t id, uint32_t value) {
    append_u32(out, id);
    append_u32(out, value);
}

bool send_fail(Stream &stream, const std::string &message) {
    std::string out;
    append_record(out, kFail, static_cast<uint32_t>(message.size()));
    out += message;
    return stream.write(out);
}

std::string errno_text(const char *what, int error) { return std::string(what) + ": " + std::strerror(error); }

class SyncSession {
public:
    SyncSession(Stream &stream, const PhoneContext &phone) : stream_(stream), reader_(stream), phone_(phone) {}

    void run() {
        uint32_t id = 0, length = 0;
        while (reader_.read_record(id, length)) {
            if (id == kQuit) return;
            if (id != kStat && id != kList && id != kSend && id != kRecv) {
                send_fail(stream_, "unknown sync request");
                return;
            }
            std::string path;
            if (length > kMaxPathLength) {
                send_fail(stream_, "path too long");
                return;
            }
            if (!reader_.read(path, length)) return;
            log(1, "%s: sync %s %s", phone_.name.c_str(), command_name(id).c_str(), path.c_str());
            const bool more = id == kStat ? stat_path(path) : id == kList ? list(path) : id == kSend ? receive_file(path) : send_file(path);
            if (!more) return;
        }
    }

private:
    // What the shell user sees of a path: nothing below a private place.
    bool lstat_as_shell(const std::string &phone_path, struct stat &st) const {
        if (!phone_.sandbox.may_read(phone_path, phone_.adbd_is_root())) return false;
        return ::lstat(phone_.sandbox.host_path(phone_path).c_str(), &st) == 0;
    }

    bool stat_path(const std::string &path) {
        struct stat st {};
        const auto phone_path = resolve_phone_path(path);
        const bool found = phone_path && lstat_as_shell(*phone_path, st);
        std::string out;
        append_u32(out, kStat);
        append_u32(out, found ? static_cast<uint32_t>(st.st_mode) : 0);
        append_u32(out, found ? static_cast<uint32_t>(st.st_size) : 0);
        append_u32(out, found ? static_cast<uint32_t>(st.st_mtime) : 0);
        return stream_.write(out);
    }

    bool list(const std::string &path) {
        const auto phone_path = resolve_phone_path(path);
        std::string out;
        if (phone_path && phone_.sandbox.may_read(*phone_path, phone_.adbd_is_root())) {
            const std::string host = phone_.sandbox.host_path(*phone_path);
            if (DIR *dir = ::opendir(host.c_str())) {
                while (const dirent *entry = ::readdir(dir)) {
                    struct stat st {};
                    const std::string name = entry->d_name;
                    if (::lstat((host + "/" + name).c_str(), &st) != 0) continue;
                    append_record(out, kDent, static_cast<uint32_t>(st.st_mode));
                    append_u32(out, static_cast<uint32_t>(st.st_size));
                    append_u32(out, static_cast<uint32_t>(st.st_mtime));
                    append_u32(out, static_cast<uint32_t>(name.size()));
                    out += name;
                    if (out.size() > kMaxDataChunk && !flush(out)) {
                        ::closedir(dir);
                        return false;
                    }
                }
                ::closedir(dir);
            }
        }
        append_record(out, kDone, 0);
        append_record(out, 0, 0);
        append_u32(out, 0);
        return stream_.write(out);
    }

    bool flush(std::string &out) {
        const bool ok = stream_.write(out);
        out.clear();
        return ok;
    }

    // SEND: "path,mode", then DATA records and a DONE with the file's time. A file that cannot be
    // made still has its data read to the DONE before the failure is told, as the client expects.
    bool receive_file(const std::string &target) {
        const auto comma = target.rfind(',');
        const std::string path = resolve_phone_path(target.substr(0, comma)).value_or("");
        const mode_t mode = comma == std::string::npos ? 0644 : static_cast<mode_t>(std::strtoul(target.c_str() + comma + 1, nullptr, 10));
        std::string failure;
        wrenlink::UniqueFd file;
        if (S_ISLNK(mode)) {
            failure = "symbolic links are not supported";
        } else if (path.empty() || !phone_.sandbox.may_write(path, phone_.adbd_is_root())) {
            failure = errno_text("couldn't create file", EACCES);
        } else {
            const std::string host = phone_.sandbox.host_path(path);
            make_parents(host);
            file.reset(::open(host.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode & 0777));
            if (!file) failure = errno_text("couldn't create file", errno);
        }

        uint32_t id = 0, value = 0;
        std::string data;
        for (;;) {
            if (!reader_.read_record(id, value)) return false;
            if (id == kDone) break;
            if (id != kData || value > kMaxDataChunk) {
                send_fail(stream_, "invalid data message");
                return false;
            }
            if (!reader_.read(data, value)) return false;
            if (file && failure.empty() && !write_all(file.get(), data)) failure = errno_text("write failed", errno);
        }
        if (!failure.empty()) {
            if (file) ::unlink(phone_.sandbox.host_path(path).c_str());
            return send_fail(stream_, failure);
        }
        const timeval times[2] = {{static_cast<time_t>(value), 0}, {static_cast<time_t>(value), 0}};
        ::futimes(file.get(), times);
        file.reset();
        std::string out;
        append_record(out, kOkayReply, 0);
        return stream_.write(out);
    }

    // RECV: the file in DATA records of at most 64 KiB, several to a transport message, then DONE.
    bool send_file(const std::string &target) {
        const std::string path = resolve_phone_path(target).value_or("");
        if (path.empty() || !phone_.sandbox.may_read(path, phone_.adbd_is_root())) return send_fail(stream_, errno_text("open failed", EACCES));
        wrenlink::UniqueFd file(::open(phone_.sandbox.host_path(path).c_str(), O_RDONLY | O_CLOEXEC));
        if (!file) return send_fail(stream_, errno_text("open failed", errno));
        std::string out;
        std::string chunk(kMaxDataChunk, '\0');
        for (;;) {
            const ssize_t n = ::read(file.get(), chunk.data(), chunk.size());
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) return send_fail(stream_, errno_text("read failed", errno));
            if (n == 0) break;
            append_record(out, kData, static_cast<uint32_t>(n));
            out.append(chunk.data(), static_cast<std::size_t>(n));
            if (out.size() >= kBatch && !flush(out)) return false;
        }
        append_record(out, kDone, 0);
        return stream_.write(out);
    }

    void make_parents(const std::string &host_file) const {
        const std::string &root = phone_.sandbox.root();
        for (auto pos = host_file.find('/', root.size() + 1); pos != std::string::npos; pos = host_file.find('/', pos + 1))
            ::mkdir(host_file.substr(0, pos).c_str(), 0771);
    }

    static bool write_all(int fd, const std::string &data) { return wrenlink::io::write_all(fd, data.data(), data.size()); }

    Stream &stream_;
    Reader reader_;
    const PhoneContext &phone_;
};

}  // namespace

void run_sync(Stream &stream, const PhoneContext &phone) {
    stream.accept();
    SyncSession(stream, phone).run();
}

}  // namespace phone
