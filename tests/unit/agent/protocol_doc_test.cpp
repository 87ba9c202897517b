// The worked examples of docs/protocol.md, read out of the document and held against the library:
// each request's bytes against its builder, each reply against what the library's call makes of
// it (and the request that call sent), each event stream against the callbacks it gives. The
// bytes of the protocol are written down there, once.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "agent/link/connection.h"
#include "agent/services/files.h"
#include "agent/services/scan.h"
#include "agent/wire/packets.h"
#include "base/crc.h"
#include "doubles/media_list.h"
#include "doubles/scripted_agent.h"

namespace {

using Words = std::vector<std::string>;

struct Example {
    int line = 0;
    Words label;          // request|reply NAME ARGS..., events, or crc
    std::string outcome;  // what follows "->"
    std::string bytes;
};

// Blank-separated words; "" is the empty text.
Words words_of(const std::string &text) {
    Words out;
    std::istringstream in(text);
    for (std::string w; in >> w;) out.push_back(w == "\"\"" ? std::string() : w);
    return out;
}

// Two hex digits per byte, blanks between; '#' starts a comment. False for anything else.
bool append_hex(std::string line, std::string &to) {
    line = line.substr(0, line.find('#'));
    std::istringstream in(line);
    for (std::string token; in >> token;) {
        const auto digit = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
        if (token.size() != 2 || !digit(token[0]) || !digit(token[1])) return false;
        to.push_back(static_cast<char>(std::stoi(token, nullptr, 16)));
    }
    return true;
}

std::vector<Example> examples() {
    std::ifstream doc(WRENLINK_PROTOCOL_DOC);
    EXPECT_TRUE(doc) << WRENLINK_PROTOCOL_DOC;
    std::vector<Example> found;
    bool inBlock = false;
    int number = 0;
    for (std::string line; std::getline(doc, line);) {
        ++number;
        if (line.starts_with("```")) {
            inBlock = !inBlock && line == "```wire";
        } else if (inBlock && (line.starts_with("request") || line.starts_with("reply") || line.starts_with("events") ||
                               line.starts_with("crc"))) {
            const auto arrow = line.find(" -> ");
            found.push_back({number, words_of(line.substr(0, arrow)),
                             arrow == std::string::npos ? "" : line.substr(arrow + 4), {}});
        } else if (inBlock && (found.empty() || !append_hex(line, found.back().bytes))) {
            ADD_FAILURE() << "protocol.md:" << number << " is neither bytes nor the start of an example: " << line;
        }
    }
    return found;
}

const std::map<std::string, std::function<std::string(const Words &)>> &builders() {
    using Bare = std::string (*)();
    using Text = std::string (*)(const char *);
    auto bare = [](Bare make) { return [make](const Words &) { return make(); }; };
    auto text = [](Text make) { return [make](const Words &w) { return make(w.at(1).c_str()); }; };
    auto id = [](const Words &w, std::size_t i) { return static_cast<uint32_t>(std::stoul(w.at(i))); };
    auto block = [id](std::string (*make)(uint32_t, int64_t, int32_t)) {
        return [make, id](const Words &w) { return make(id(w, 1), std::stoll(w.at(2)), std::stoi(w.at(3))); };
    };
    static const std::map<std::string, std::function<std::string(const Words &)>> kBuilders = {
        {"ping", bare(make_ping_packet)},
        {"open", [](const Words &w) { return make_file_open_packet(w.at(1).c_str(), w.at(2).c_str()); }},
        {"close", [id](const Words &w) { return make_file_close_packet(id(w, 1)); }},
        {"read", block(make_file_read_packet)},
        {"write", block(make_file_write_packet)},
        {"tell", [id](const Words &w) { return make_file_tell_packet(id(w, 1)); }},
        {"seek", block(make_file_seek_packet)},
        {"delete", text(make_file_delete_packet)}, {"access", text(make_file_acc_packet)},
        {"stat", text(make_file_stat_packet)}, {"opendir", text(make_open_dir_packet)},
        {"readdir", text(make_read_dir_packet)}, {"closedir", text(make_close_dir_packet)},
        {"mkdir", text(make_file_mkdir_packet)},
        {"list-music", bare(make_list_music_packet)}, {"add-music", text(make_add_music_packet)},
        {"del-music", text(make_del_music_packet)}, {"list-images", bare(make_list_image_packet)},
        {"add-images", text(make_add_image_packet)}, {"del-images", text(make_del_image_packet)},
        {"list-videos", bare(make_list_video_packet)}, {"add-videos", text(make_add_video_packet)},
        {"del-videos", text(make_del_video_packet)},
        {"start-scan", [](const Words &) { return make_start_scan_packet(nullptr); }},
        {"stop-scan", bare(make_stop_scan_packet)}, {"resume-scan", bare(make_resume_scan_packet)},
        {"pause-scan", bare(make_pause_scan_packet)}, {"erase", text(make_erase_file_packet)},
    };
    return kBuilders;
}

std::string request_of(const Words &w) {
    const auto it = builders().find(w.at(0));
    if (it != builders().end()) return it->second(w);
    ADD_FAILURE() << "no request is called " << w.at(0);
    return {};
}

// A connection whose agent has sent `bytes` and shut its side: no read of the library waits.
class Peer {
public:
    explicit Peer(const std::string &bytes) {
        int fds[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        conn.sock = fds[0];
        agent_ = fds[1];
        EXPECT_EQ(::send(agent_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        ::shutdown(agent_, SHUT_WR);
    }
    ~Peer() {
        wrenlink::agent::close_connection(&conn);
        ::close(agent_);
    }
    std::string sent() const {
        std::string got(4096, '\0');
        const ssize_t n = ::recv(agent_, got.data(), got.size(), MSG_DONTWAIT);
        return got.substr(0, n > 0 ? static_cast<std::size_t>(n) : 0);
    }
    NetConnection conn;

private:
    int agent_ = -1;
};

std::string status_text(AgentStatus s) {
    if (s == AgentBadMagic) return "AgentBadMagic";
    if (s == AgentShortPayload) return "AgentShortPayload";
    if (s == AgentBadCrc) return "AgentBadCrc";
    return std::to_string(s);
}

std::string items_text(const __MediaBean *b) {
    std::ostringstream out;
    out << " [";
    for (; b != nullptr; b = b->next) {
        out << b->value1 << " \"" << b->text1 << "\" " << b->value2 << " \"" << b->text2 << "\" " << b->value3
            << " \"" << b->text3 << '"' << (b->next != nullptr ? "] [" : "");
    }
    return out.str() + "]";
}

// The library's call for a reply example, and what it gives its caller, as the document writes it.
std::string outcome_of(const Words &w, NetConnection *conn) {
    const std::string &name = w.at(0);
    const auto handle = [&] { return NFCFileRef{static_cast<uint32_t>(std::stoul(w.at(1))), w.size() > 2 ? std::stoll(w[2]) : 0}; };
    if (name == "ping") return std::to_string(TestPing(conn));
    if (name == "open") {
        NFCFileRef *ref = nullptr;
        const AgentStatus s = NFCFileRefOpen(conn, w.at(1).c_str(), w.at(2).c_str(), &ref);
        const std::string id = ref != nullptr ? " id " + std::to_string(ref->remoteId) : "";
        std::free(ref);
        return status_text(s) + id;
    }
    if (name == "read") {
        NFCFileRef ref = handle();
        std::string buffer(std::stoul(w.at(3)), '\0');
        auto length = static_cast<int32_t>(buffer.size());
        const AgentStatus s = NFCFileRefRead(conn, &ref, buffer.data(), &length);
        return status_text(s) + (s == 0 ? " \"" + buffer.substr(0, static_cast<std::size_t>(length)) + '"' : "");
    }
    if (name == "tell") {
        NFCFileRef ref = handle();
        int64_t at = 0;
        const AgentStatus s = NFCFileRefTell(conn, &ref, &at);
        return status_text(s) + (s == 0 ? " at " + std::to_string(at) : "");
    }
    if (name == "close") {
        auto *owned = static_cast<NFCFileRef *>(std::malloc(sizeof(NFCFileRef)));
        *owned = handle();
        return status_text(NFCFileRefClose(conn, owned));
    }
    using PathCall = AgentStatus (*)(NetConnection *, const char *);
    static const std::map<std::string, PathCall> kPathCalls = {
        {"delete", NFCFileRefDelete}, {"mkdir", NFCFileRefMkDir},   {"access", NFCFileRefAccess},
        {"add-images", NMCAddImage},  {"del-images", NMCDelImage},  {"add-music", NMCAddMusic},
        {"del-music", NMCDelMusic},   {"add-videos", NMCAddIVideo}, {"del-videos", NMCDelIVideo},
        {"erase", NDDEraseFile}};
    if (const auto call = kPathCalls.find(name); call != kPathCalls.end()) {
        return status_text(call->second(conn, w.at(1).c_str()));
    }
    using BareCall = AgentStatus (*)(NetConnection *);
    static const std::map<std::string, BareCall> kBareCalls = {
        {"stop-scan", NDDStopScan}, {"pause-scan", NDDPauseScan}, {"resume-scan", NDDResumeScan}};
    if (const auto call = kBareCalls.find(name); call != kBareCalls.end()) return status_text(call->second(conn));
    using ListCall = AgentStatus (*)(NetConnection *, __MediaBean *, uint32_t *);
    static const std::map<std::string, ListCall> kLists = {
        {"list-images", NMCListImages}, {"list-music", NMCListMusics}, {"list-videos", NMCListVideo}};
    if (const auto call = kLists.find(name); call != kLists.end()) {
        __MediaBean head{};
        uint32_t count = 0;
        const AgentStatus s = call->second(conn, &head, &count);
        const std::string items = s == 0 ? items_text(head.next) : "";
        wrenlink::test::free_media_list(head.next);
        return status_text(s) + items;
    }
    ADD_FAILURE() << "no reply example for " << name;
    return {};
}

// A scan's callbacks write what they were told into the std::string that the user value points to.
void tell(uint64_t user, const std::string &what) {
    auto &said = *reinterpret_cast<std::string *>(user);
    said += (said.empty() ? "" : "; ") + what;
}

// The callbacks of a scan, in order; a found item's tabs written \t.
std::string events_of(NetConnection *events) {
    std::string said;
    wrenlink::agent::ScanArgs args{
        nullptr, events,
        [](const char *item, uint64_t user) {
            std::string text;
            for (const char *c = item; *c != '\0'; ++c) text += *c == '\t' ? std::string("\\t") : std::string(1, *c);
            tell(user, "item \"" + text + '"');
        },
        [](uint32_t code, uint64_t user) { tell(user, "code " + std::to_string(code)); },
        [](int64_t done, int64_t total, uint64_t user) {
            tell(user, "progress " + std::to_string(done) + '/' + std::to_string(total));
        },
        reinterpret_cast<uint64_t>(&said)};
    wrenlink::agent::follow_scan_events(&args);
    return said;
}

}  // namespace

TEST(ProtocolDocument, EveryRequestIsWorkedOutAsTheLibraryBuildsIt) {
    std::set<std::string> worked;
    for (const Example &e : examples()) {
        if (e.label.at(0) != "request") continue;
        const Words request(e.label.begin() + 1, e.label.end());
        worked.insert(request.at(0));
        EXPECT_EQ(wrenlink::test::hex(e.bytes), wrenlink::test::hex(request_of(request))) << "protocol.md:" << e.line;
    }
    for (const auto &[name, build] : builders()) EXPECT_TRUE(worked.count(name)) << "no worked request " << name;
}

// Each CRC whole, and again in two pieces, the second started from the first's.
TEST(ProtocolDocument, TheCrcGivesTheWorkedValuesWholeAndInPieces) {
    int worked = 0;
    for (const Example &e : examples()) {
        if (e.label.at(0) != "crc") continue;
        const auto size = static_cast<uint32_t>(e.bytes.size());
        char text[9];
        std::snprintf(text, sizeof text, "%08x", get_crc32(e.bytes.data(), size, 0));
        EXPECT_EQ(text, e.outcome) << "protocol.md:" << e.line;
        const uint32_t first = get_crc32(e.bytes.data(), 1, 0);
        EXPECT_EQ(get_crc32(e.bytes.data() + 1, size - 1, first), get_crc32(e.bytes.data(), size, 0));
        ++worked;
    }
    EXPECT_GE(worked, 2);
}

TEST(ProtocolDocument, TheLibraryMakesOfEachReplyWhatTheDocumentSays) {
    int replies = 0;
    for (const Example &e : examples()) {
        if (e.label.at(0) == "request" || e.label.at(0) == "crc") continue;
        Peer agent(e.bytes);
        if (e.label.at(0) == "events") {
            EXPECT_EQ(events_of(&agent.conn), e.outcome) << "protocol.md:" << e.line;
            EXPECT_EQ(agent.sent(), std::string(4, '\0')) << "the greeting";
            continue;
        }
        const Words request(e.label.begin() + 1, e.label.end());
        EXPECT_EQ(outcome_of(request, &agent.conn), e.outcome) << "protocol.md:" << e.line;
        EXPECT_EQ(wrenlink::test::hex(agent.sent()), wrenlink::test::hex(request_of(request))) << "protocol.md:" << e.line;
        ++replies;
    }
    EXPECT_GE(replies, 10);
}
