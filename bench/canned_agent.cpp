#include "canned_agent.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "raw_link.h"

namespace wrenlink::bench {

namespace {

void append_text(std::string &out, const std::string &text) {
    out += text;
    out += '\0';
}

std::string media_list_reply() {
    std::string items;
    for (uint32_t i = 1; i <= CannedAgent::kMediaItems; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "IMG_20240610_%06u.jpg", i);
        wire::append_u32(items, i);
        append_text(items, std::string("/DCIM/Camera/") + name);
        wire::append_u64(items, 100000 + i * 37u);
        append_text(items, name);
        wire::append_u64(items, 1718006400u + i);
        append_text(items, "image/jpeg");
    }
    return wire::packet(wire::op::kListImage, items, wire::Crc::Zero);
}

std::string scan_events() {
    std::string out;
    out.reserve(static_cast<std::size_t>(CannedAgent::kScanItems) * (wire::kHeaderSize + CannedAgent::kItemText) +
                (CannedAgent::kScanItems / CannedAgent::kProgressEvery + 1) * (wire::kHeaderSize + 16));
    for (uint32_t i = 0; i < CannedAgent::kScanItems; ++i) {
        out += wire::packet_header(wire::op::kEventFoundItem, CannedAgent::kItemText);
        append_text(out, CannedAgent::item_text(i));
        if ((i + 1) % CannedAgent::kProgressEvery == 0) {
            out += wire::packet_header(wire::op::kEventProgress, 16);
            wire::append_u64(out, i + 1);
            wire::append_u64(out, CannedAgent::kScanItems);
        }
    }
    out += wire::packet_header(wire::op::kEventCode, 4);
    wire::append_u32(out, 0);
    return out;
}

}  // namespace

std::string CannedAgent::item_text(uint32_t i) {
    char text[kItemText];
    std::snprintf(text, sizeof text, "%u\t1718006400\timage/jpeg\t/DCIM/Camera/IMG_%010u.jpg", 1000 + i % 9000, i);
    std::string padded(text);
    padded.resize(kItemText - 1, '_');  // every text has the same length
    return padded;
}

CannedAgent *CannedAgent::get() {
    // Never destroyed: its thread serves until the process ends.
    static CannedAgent *agent = [] {
        auto *a = new CannedAgent;
        std::string error;
        if (a->start(error)) return a;
        std::fprintf(stderr, "canned agent: %s\n", error.c_str());
        delete a;
        return static_cast<CannedAgent *>(nullptr);
    }();
    return agent;
}

uint16_t CannedAgent::port() const { return port_of(control_.get()); }

bool CannedAgent::start(std::string &error) {
    control_ = listen_loopback(0);
    events_ = listen_loopback(wire::kEventPort);
    if (!control_ || !events_) {
        error = std::string("cannot listen on 127.0.0.1") + (control_ ? ":10244: " : ": ") + std::strerror(errno);
        return false;
    }
    listReply_ = media_list_reply();
    eventStream_ = scan_events();
    std::thread([this] { serve(); }).detach();
    return true;
}

void CannedAgent::serve() {
    for (;;) {
        UniqueFd conn = accept_one(control_.get());
        if (!conn) return;
        std::thread([this, c = std::move(conn)] { serve_connection(c.get()); }).detach();
    }
}

// Requests one by one until the peer closes. Scans come one at a time: the benchmarks are sequential.
void CannedAgent::serve_connection(int fd) {
    std::vector<char> payload;
    for (;;) {
        wire::PacketHeader request;
        if (!recv_header(fd, request)) return;
        payload.resize(request.length);
        if (!recv_exact(fd, payload.data(), payload.size())) return;
        if (request.opcode == wire::op::kListImage) {
            if (!send_all(fd, listReply_)) return;
        } else if (request.opcode == wire::op::kStartScan) {
            if (!send_all(fd, wire::packet(request.opcode, {}, wire::Crc::Zero))) return;
            const UniqueFd events = accept_one(events_.get());
            char greeting[4];
            if (events && recv_exact(events.get(), greeting, sizeof greeting)) (void)send_all(events.get(), eventStream_);
        } else if (!send_all(fd, wire::packet(request.opcode, {}, wire::Crc::Zero, ENOSYS))) {
            return;
        }
    }
}

}  // namespace wrenlink::bench
