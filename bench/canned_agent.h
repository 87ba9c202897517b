// An agent of the bench's own that answers from bytes built in advance, so that the scan and media
// figures measure the reading side alone and not an agent walking a tree:
//
//   - a list of images (opcode 104) gets one reply of kMediaItems items;
//   - a scan start (opcode 201) gets status 0, then the whole event stream goes out on the
//     connection that the reader opens to 127.0.0.1:10244 (the library's fixed event port), which
//     is then closed: kScanItems found items with 64-byte texts, a progress event after every
//     kProgressEvery of them, and a code event 0 at the end.
//
// It serves each control connection on a thread of its own, for the life of the process.
#pragma once

#include <cstdint>
#include <string>

#include "base/unique_fd.h"

namespace wrenlink::bench {

class CannedAgent {
public:
    static constexpr uint32_t kMediaItems = 100000;
    static constexpr uint32_t kScanItems = 1000000;
    static constexpr uint32_t kProgressEvery = 100;
    static constexpr uint32_t kItemText = 64;  // payload bytes of a found item, its NUL included
    // Callbacks a whole scan makes: every found item, every progress, the one code.
    static constexpr uint64_t kScanEvents = kScanItems + kScanItems / kProgressEvery + 1;

    // The running agent, started on the first call; null (with the reason on stderr, once) when
    // it cannot listen, as when another program holds the event port.
    static CannedAgent *get();

    uint16_t port() const;
    // The text of found item `i`, as the stream carries it (without the NUL).
    static std::string item_text(uint32_t i);

private:
    CannedAgent() = default;
    bool start(std::string &error);
    void serve();
    void serve_connection(int fd);

    UniqueFd control_;
    UniqueFd events_;
    std::string listReply_;
    std::string eventStream_;
};

}  // namespace wrenlink::bench
