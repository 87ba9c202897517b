// One control connection: reads requests one by one and answers each before the next.
//
// A request with a wrong magic, or whose length passes what its opcode could carry, leaves the
// stream in an unknown place: the connection is closed. Any other fault is answered with an errno
// in `status` and the connection goes on. Files and directories opened on a connection belong to
// it and are closed with it.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique_fd.h"
#include "base/packet.h"
#include "catalogue.h"
#include "frame.h"
#include "log.h"
#include "sandbox.h"
#include "scanner.h"
#include "tree.h"

namespace wrenlink::reference_agent {

struct Services {
    const Sandbox &sandbox;
    Catalogue &catalogue;
    Scanner &scanner;
    const Log &log;
};

// Limits of one connection.
constexpr uint32_t kMaxRequestPayload = 64 * 1024;     // every request but write
constexpr int32_t kMaxReadReply = 16 * 1024 * 1024;    // a larger read is answered in part
constexpr std::size_t kMaxOpenFiles = 256;
constexpr std::size_t kMaxOpenDirs = 16;
constexpr std::size_t kDirBatchBytes = 32 * 1024;

class Session {
public:
    Session(int number, UniqueFd socket, Services services);
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Serves until the peer closes, a malformed request, or interrupt().
    void run();
    // Ends run() from another thread.
    void interrupt();
    bool finished() const { return finished_.load(); }

private:
    struct Reply {
        uint32_t status = 0;
        std::string payload;
        Crc crc = Crc::OverPayload;
    };
    struct DirCursor {
        std::vector<DirEntry> entries;
        std::size_t next = 0;
    };

    bool serve_one();
    bool serve_write(const wire::PacketHeader &header);
    Reply dispatch(const wire::PacketHeader &header, std::string_view payload);
    void log_request(std::string_view what, uint32_t status) const;

    Reply file_open(std::string_view payload);
    Reply file_close(std::string_view payload);
    Reply file_read(std::string_view payload);
    Reply file_tell(std::string_view payload);
    Reply file_seek(std::string_view payload);
    Reply path_delete(std::string_view path);
    Reply path_mkdir(std::string_view path);
    Reply path_access(std::string_view path);
    Reply path_stat(std::string_view path);
    Reply dir_open(std::string_view path);
    Reply dir_read(std::string_view path);
    Reply dir_close(std::string_view path);
    Reply media_list(MediaKind kind);
    Reply erase_file(std::string_view path);

    int fd_of(uint32_t id) const;

    const std::string tag_;  // "#<number>", for the log
    UniqueFd socket_;
    std::mutex socket_mutex_;  // interrupt() against the close at the end of run()
    Services services_;
    std::map<uint32_t, UniqueFd> files_;
    uint32_t next_file_id_ = 1;
    std::map<std::string, DirCursor> dirs_;
    std::string what_;  // the current request, for the log
    std::atomic<bool> finished_{false};
};

}  // namespace wrenlink::reference_agent
