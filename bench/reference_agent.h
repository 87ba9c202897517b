// The reference agent program (tools/wrenlink-agent), started once for the whole run on a port of
// its own and stopped at exit. It serves a fresh directory in memory (/dev/shm where there is one,
// so every read and write stays in the page cache) holding:
//
//   /read.bin, /write.bin   kFileSize bytes each, for the file benchmarks
//   /DCIM/*.jpg             three small images, so that a media list has something to list
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace wrenlink::bench {

constexpr int64_t kFileSize = 16 << 20;

class ReferenceAgent {
public:
    // The running agent, started on the first call; null (with the reason on stderr, once) when it
    // cannot be started.
    static ReferenceAgent *get();

    uint16_t port() const { return port_; }

    ReferenceAgent(const ReferenceAgent &) = delete;
    ReferenceAgent &operator=(const ReferenceAgent &) = delete;
    ~ReferenceAgent();

private:
    ReferenceAgent() = default;
    bool start(std::string &error);

    std::string root_;
    pid_t pid_ = -1;
    uint16_t port_ = 0;
};

}  // namespace wrenlink::bench
