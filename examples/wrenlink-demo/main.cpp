// wrenlink-demo: what a desktop application does with libWrenlink, step by step (kUsage says
// what it does). It uses nothing but the public header and the installed library.
#include <Wrenlink/Wrenlink.h>

#include "agent_install.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

const char kUsage[] =
    "usage: wrenlink-demo [--address A] [--port N] [--forward PHONE_PORT | --install-agent [--agents DIR]]\n"
    "                     [--serial S] [--out DIR]\n"
    "\n"
    "Lists the phones that adb sees, connects to the phone-side agent (through a port adb forwards,\n"
    "to wrenlink-agent on this machine directly, or to one it installs on the phone), pings it,\n"
    "scans the phone with a live progress bar, lists the media catalogue, copies the largest item\n"
    "from the phone and verifies it, and writes a file back and deletes it.\n"
    "\n"
    "  --address A   the agent's dotted IPv4 address (default 127.0.0.1)\n"
    "  --port N      the agent's port (default 10243); with --forward or --install-agent, the\n"
    "                local end\n"
    "  --forward P   have adb forward --port to port P of the phone first\n"
    "  --install-agent\n"
    "                push the agent built for the phone's processor to it, start it, and have adb\n"
    "                forward --port and 127.0.0.1:10244 (scan events) to it; at the end, also after\n"
    "                a failed step, the agent is stopped and the forwards removed\n"
    "  --agents DIR  the phone builds, DIR/<abi>/wrenlink-agent (default: share/wrenlink/phone-agents\n"
    "                beside this program's folder, as installed)\n"
    "  --serial S    the phone to forward through or install on (default: the first authorised one)\n"
    "  --out DIR     an existing directory for the copied file (default .)\n"
    "\n"
    "adb is the library's: Resources/adb beside the folder of this program. When no adb server\n"
    "answered on its port (ANDROID_ADB_SERVER_PORT, default 5037) before the run, the server that\n"
    "the run started is stopped at its end.\n"
    "\n"
    "Exit status: 0 when every step passed; 1 when a step failed or DIR cannot be written; 2 for a\n"
    "bad command line.\n";

constexpr int kSteps = 6;
constexpr int32_t kChunk = 16 * 1024;
constexpr int32_t kWhenceSet = 0, kWhenceEnd = 2;  // the agent's whence values, as lseek's

struct Options {
    std::string address = "127.0.0.1";
    uint32_t port = 10243;
    uint32_t forward = 0;   // the agent's port on the phone; 0: connect directly
    std::string serial;     // the phone to forward through; empty: the first authorised one
    std::string out = ".";
    bool install_agent = false;
    std::string agents;     // the phone builds; empty: the install tree's
};

bool g_tty = false;

// The agent this run installed on the phone, taken away again on every way out.
std::unique_ptr<wrenlink_example::AgentInstall> g_installed;

// ---- the adb server --------------------------------------------------------------------------

// Any adb command starts the tool's server, which outlives the program. A run that found none
// answering stops the one it caused, on every way out.
bool g_stop_adb_server = false;

bool adb_server_answers() {
    const char *text = std::getenv("ANDROID_ADB_SERVER_PORT");
    const unsigned long port = text != nullptr && *text != '\0' ? std::strtoul(text, nullptr, 10) : 5037;
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || port == 0 || port > 65535) {
        if (fd >= 0) ::close(fd);
        return false;
    }
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<uint16_t>(port));
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool answers = ::connect(fd, reinterpret_cast<const sockaddr *>(&server), sizeof server) == 0;
    ::close(fd);
    return answers;
}

void stop_adb_server_we_started() {
    if (!g_stop_adb_server || !adb_server_answers()) return;
    g_stop_adb_server = false;
    char output[2048] = {};
    AdbCommand(" kill-server", output, sizeof output, true);
    std::printf("Stopped the adb server that this run started.\n");
}

[[noreturn]] void fail(const std::string &what) {
    std::fprintf(stderr, "\nwrenlink-demo: %s\n", what.c_str());
    std::fflush(stderr);
    if (g_installed && !g_installed->remove()) std::fprintf(stderr, "wrenlink-demo: %s\n", g_installed->error().c_str());
    stop_adb_server_we_started();
    std::exit(1);
}

[[noreturn]] void usage_error(const std::string &why) {
    std::fprintf(stderr, "wrenlink-demo: %s\n%.*s", why.c_str(), static_cast<int>(std::strchr(kUsage, '\n') - kUsage + 1),
                 kUsage);
    std::exit(2);
}

// How an AgentStatus reads: the library's own codes by name, the agent's (errno values) by text.
std::string describe(AgentStatus status) {
    switch (status) {
        case AgentBadMagic: return "bad magic in the agent's reply";
        case AgentShortPayload: return "the agent's reply was cut short";
        case AgentBadCrc: return "bad CRC in the agent's reply";
        default: return "status " + std::to_string(status) + ": " + std::strerror(static_cast<int>(status));
    }
}

void check(AgentStatus status, const std::string &what) {
    if (status != 0) fail(what + " failed (" + describe(status) + ")");
}

void step(int n, const std::string &title) { std::printf("[%d/%d] %s\n", n, kSteps, title.c_str()); }

std::string human_size(uint64_t bytes) {
    char text[32];
    if (bytes < 1024) {
        std::snprintf(text, sizeof text, "%llu B", static_cast<unsigned long long>(bytes));
    } else if (bytes < 1024 * 1024) {
        std::snprintf(text, sizeof text, "%.1f KiB", bytes / 1024.0);
    } else {
        std::snprintf(text, sizeof text, "%.1f MiB", bytes / (1024.0 * 1024.0));
    }
    return text;
}

// A progress bar on one line: redrawn in place on a terminal, printed once when finished otherwise.
// A negative total is not known yet: the bar stays empty and unfinished.
void draw_bar(int64_t done, int64_t total, const std::string &tail) {
    const bool finished = total >= 0 && done >= total;
    if (!g_tty && !finished) return;
    constexpr int kWidth = 32;
    const int64_t shown = std::clamp<int64_t>(done, 0, std::max<int64_t>(total, 0));
    const int filled = total > 0 ? static_cast<int>(shown * kWidth / total) : (finished ? kWidth : 0);
    const std::string percent = total > 0 ? std::to_string(shown * 100 / total) : (finished ? "100" : "?");
    std::printf("%s      [%s%s] %3s%%  %s%s", g_tty ? "\r" : "", std::string(static_cast<std::size_t>(filled), '#').c_str(),
                std::string(static_cast<std::size_t>(kWidth - filled), '.').c_str(), percent.c_str(), tail.c_str(),
                finished ? "\n" : "");
    std::fflush(stdout);
}

uint32_t port_value(const std::string &option, const std::string &text) {
    char *end = nullptr;
    const unsigned long port = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || port == 0 || port > 65535)
        usage_error(option + " takes a number from 1 to 65535, not '" + text + "'");
    return static_cast<uint32_t>(port);
}

// Every value is checked here, before the first step.
Options parse(int argc, char **argv) {
    Options o;
    std::string address_or_forward;   // the options that --install-agent replaces
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        }
        if (a == "--install-agent") {
            o.install_agent = true;
            continue;
        }
        if (a != "--address" && a != "--port" && a != "--forward" && a != "--serial" && a != "--out" && a != "--agents")
            usage_error((a.starts_with('-') ? "unknown option: " : "unexpected argument: ") + a);
        if (i + 1 == argc) usage_error(a + " needs a value");
        const std::string value = argv[++i];
        if (a == "--address") {
            in_addr parsed{};
            if (::inet_pton(AF_INET, value.c_str(), &parsed) != 1)
                usage_error("--address takes a dotted IPv4 address, not '" + value + "'");
            o.address = value;
        } else if (a == "--port" || a == "--forward") {
            (a == "--port" ? o.port : o.forward) = port_value(a, value);
        } else {
            (a == "--serial" ? o.serial : a == "--agents" ? o.agents : o.out) = value;
        }
        if (a == "--address" || a == "--forward") address_or_forward = a;
    }
    if (o.install_agent && !address_or_forward.empty())
        usage_error(address_or_forward + " does not go with --install-agent, which forwards through adb on 127.0.0.1");
    if (!o.agents.empty() && !o.install_agent) usage_error("--agents goes with --install-agent");
    if (!o.serial.empty() && o.forward == 0 && !o.install_agent) usage_error("--serial goes with --forward or --install-agent");
    // The copy goes there at step 5: a directory that can't take it fails the run now.
    struct stat out {};
    const char *unusable = nullptr;
    if (::stat(o.out.c_str(), &out) != 0 || (S_ISDIR(out.st_mode) && ::access(o.out.c_str(), W_OK) != 0))
        unusable = std::strerror(errno);
    else if (!S_ISDIR(out.st_mode))
        unusable = "not a directory";
    if (unusable != nullptr) {
        std::fprintf(stderr, "wrenlink-demo: --out %s: %s\n", o.out.c_str(), unusable);
        std::exit(1);
    }
    return o;
}

// ---- 1. Phones -------------------------------------------------------------------------------

// Returns the serial of the first authorised phone, or the empty text.
std::string list_phones() {
    step(1, "Phones attached through adb");
    const char *adb = AndGetAdbFullpath();
    if (adb == nullptr || ::access(adb, X_OK) != 0) {
        std::printf("      adb is missing: the library looks for it at %s\n", adb ? adb : "(unknown)");
        std::printf("      (skipped; the rest of the demo talks to the agent directly)\n");
        return {};
    }
    g_stop_adb_server = !adb_server_answers();
    std::string first;
    PhoneInfo *phones = nullptr;
    uint32_t count = 0;
    AdbGetPhoneList(&phones, &count);
    if (count == 0) {
        std::printf("      no phone attached (adb: %s)\n", adb);
    } else {
        std::printf("      %-20s %-16s %-14s %-8s %s\n", "SERIAL", "MODEL", "MAKER", "ANDROID", "AUTHORISED");
        for (uint32_t i = 0; i < count; ++i) {
            const PhoneInfo &p = phones[i];
            // Fields of 32 bytes need not be terminated.
            auto field = [](const char (&f)[32]) { return std::string(f, strnlen(f, sizeof f)); };
            std::printf("      %-20s %-16s %-14s %-8s %s\n", field(p.serial).c_str(), field(p.productModel).c_str(),
                        field(p.manufacturer).c_str(), field(p.softVersion).c_str(), p.authorized ? "yes" : "no");
            if (first.empty() && p.authorized) first = field(p.serial);
        }
    }
    WrenlinkFree(phones);
    return first;
}

// ---- 2. Agent --------------------------------------------------------------------------------

NetConnection *install_agent(const Options &o) {
    step(2, "Agent installed on the phone through adb");
    g_installed = std::make_unique<wrenlink_example::AgentInstall>(
        wrenlink_example::AgentInstallSettings{.serial = o.serial, .agents_dir = o.agents, .control_port = o.port},
        [](const std::string &line) { std::printf("      %s\n", line.c_str()); });
    if (!g_installed->install()) fail(g_installed->error());
    return g_installed->connection();
}

NetConnection *connect_to_agent(const Options &o, const std::string &listed_phone) {
    if (o.install_agent) return install_agent(o);
    step(2, "Agent at " + o.address + ":" + std::to_string(o.port));
    if (o.forward != 0) {
        const std::string serial = o.serial.empty() ? listed_phone : o.serial;
        if (serial.empty()) fail("no authorised phone to forward the agent's port through");
        // AdbForward reports nothing; a forward that failed shows as a connection that fails.
        AdbForward(serial.c_str(), o.port, o.forward);
        std::printf("      adb forwards 127.0.0.1:%u to port %u of %s\n", o.port, o.forward, serial.c_str());
    }
    NetConnection *conn = NetConnectionOpen(o.address.c_str(), o.port);
    if (conn == nullptr)
        fail("cannot connect to the agent at " + o.address + ":" + std::to_string(o.port) +
             " (is wrenlink-agent running, or the port forwarded with adb?)");
    const int32_t ping = TestPing(conn);
    if (ping != 0) fail("the agent did not answer the ping (TestPing gave " + std::to_string(ping) + ")");
    std::printf("      connected, ping answered\n");
    return conn;
}

// ---- 3. Scan ---------------------------------------------------------------------------------

struct ScanState {
    int64_t found = 0;
    std::map<std::string, int> by_kind;
    int64_t done = 0, total = -1;  // no total until the first progress event
    bool has_code = false;
    uint32_t code = 0;
};

// The agent's found item: "<size>\t<mtime>\t<MIME type>\t<path>".
std::string kind_of_item(const char *item) {
    const char *tab1 = std::strchr(item, '\t');
    const char *tab2 = tab1 ? std::strchr(tab1 + 1, '\t') : nullptr;
    if (!tab2) return "other";
    const std::string mime(tab2 + 1, std::strcspn(tab2 + 1, "/\t"));
    return mime == "image" || mime == "audio" || mime == "video" ? mime : "other";
}

void draw_scan(const ScanState &s) {
    std::string tail = std::to_string(s.found) + " found";
    if (s.total >= 0) tail += ", " + std::to_string(s.done) + "/" + std::to_string(s.total) + " files";
    draw_bar(s.done, s.total, tail);
}

void on_found_item(const char *item, uint64_t user) {
    auto &s = *reinterpret_cast<ScanState *>(static_cast<uintptr_t>(user));
    ++s.found;
    ++s.by_kind[kind_of_item(item)];
    if (g_tty && (s.total < 0 || s.done < s.total)) draw_scan(s);  // a finished bar is drawn once
}

void on_progress(int64_t done, int64_t total, uint64_t user) {
    auto &s = *reinterpret_cast<ScanState *>(static_cast<uintptr_t>(user));
    s.done = done;
    s.total = total;
    draw_scan(s);
}

void on_code(uint32_t code, uint64_t user) {
    auto &s = *reinterpret_cast<ScanState *>(static_cast<uintptr_t>(user));
    s.has_code = true;
    s.code = code;
}

void scan(NetConnection *conn) {
    step(3, "Scanning the phone");
    ScanState s;
    const auto started = std::chrono::steady_clock::now();
    check(NDDStartScan(conn, nullptr, on_found_item, on_code, on_progress,
                       static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&s))),
          "starting the scan");
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
    if (!s.has_code) fail("the scan ended without a result");
    if (s.code == 22) fail("the scan's event stream broke off (code 22)");
    if (s.code != 0) fail("the scan ended with code " + std::to_string(s.code) + " (" + std::strerror(static_cast<int>(s.code)) + ")");
    if (s.found != s.total) fail("the scan counted " + std::to_string(s.total) + " files but reported " + std::to_string(s.found));
    std::printf("      found %lld files: %d images, %d audio, %d video, %d other (%lld ms)\n",
                static_cast<long long>(s.found), s.by_kind["image"], s.by_kind["audio"], s.by_kind["video"],
                s.by_kind["other"], static_cast<long long>(ms.count()));
}

// ---- 4. Media catalogue ----------------------------------------------------------------------

// The agent's item: value1 id, text1 path, value2 size, text2 name, value3 mtime, text3 MIME type.
struct Media {
    std::string kind;
    uint32_t id;
    std::string path, name, mime;
    uint64_t size;
    int64_t mtime;
};

std::vector<Media> take_list(const char *kind, __MediaBean &head) {
    std::vector<Media> out;
    for (__MediaBean *b = head.next; b != nullptr;) {
        out.push_back(Media{kind, b->value1, b->text1, b->text2, b->text3, b->value2, static_cast<int64_t>(b->value3)});
        __MediaBean *next = b->next;
        WrenlinkFree(b->text1);
        WrenlinkFree(b->text2);
        WrenlinkFree(b->text3);
        WrenlinkFree(b);
        b = next;
    }
    head.next = nullptr;
    return out;
}

std::vector<Media> list_media(NetConnection *conn) {
    step(4, "Media catalogue");
    using Lister = AgentStatus (*)(NetConnection *, __MediaBean *, uint32_t *);
    const std::pair<const char *, Lister> kinds[] = {{"image", NMCListImages}, {"music", NMCListMusics}, {"video", NMCListVideo}};
    std::vector<Media> all;
    for (const auto &[kind, lister] : kinds) {
        __MediaBean head{};
        uint32_t count = 0;
        check(lister(conn, &head, &count), std::string("listing ") + kind);
        const auto items = take_list(kind, head);
        if (items.size() != count) fail(std::string("the ") + kind + " list counted " + std::to_string(count) + " items but held " + std::to_string(items.size()));
        all.insert(all.end(), items.begin(), items.end());
    }
    std::printf("      %-6s %4s %10s  %-16s  %-16s %s\n", "KIND", "ID", "SIZE", "MODIFIED", "TYPE", "PATH");
    for (const auto &m : all) {
        char when[32] = "?";
        const std::time_t t = static_cast<std::time_t>(m.mtime);
        if (const std::tm *tm = std::localtime(&t)) std::strftime(when, sizeof when, "%Y-%m-%d %H:%M", tm);
        std::printf("      %-6s %4u %10s  %-16s  %-16s %s\n", m.kind.c_str(), m.id, human_size(m.size).c_str(), when,
                    m.mime.c_str(), m.path.c_str());
    }
    std::printf("      %zu items\n", all.size());
    return all;
}

// ---- 5. Copy a file from the phone -----------------------------------------------------------

std::string read_remote(NetConnection *conn, NFCFileRef *ref, int64_t size, bool show_progress) {
    std::string data;
    std::vector<char> chunk(kChunk);
    for (;;) {
        int32_t length = kChunk;
        check(NFCFileRefRead(conn, ref, chunk.data(), &length), "reading");
        if (length == 0) break;
        data.append(chunk.data(), static_cast<std::size_t>(length));
        if (show_progress) draw_bar(static_cast<int64_t>(data.size()), size, human_size(data.size()) + " of " + human_size(static_cast<uint64_t>(size)));
    }
    return data;
}

// Reads the file a second time, chunk by chunk from its end to its start, moving with seeks,
// and compares every byte with the copy.
void verify_backwards(NetConnection *conn, NFCFileRef *ref, const std::string &copy) {
    check(NFCFileRefSeek(conn, ref, 0, kWhenceEnd), "seeking to the end");
    int64_t end = -1;
    check(NFCFileRefTell(conn, ref, &end), "asking the position");
    if (end != static_cast<int64_t>(copy.size()))
        fail("the file is " + std::to_string(end) + " bytes on the phone, the copy " + std::to_string(copy.size()));
    std::vector<char> chunk(kChunk);
    for (int64_t at = (end - 1) / kChunk * kChunk; at >= 0; at -= kChunk) {
        check(NFCFileRefSeek(conn, ref, at, kWhenceSet), "seeking");
        int32_t length = kChunk;
        check(NFCFileRefRead(conn, ref, chunk.data(), &length), "reading again");
        if (copy.compare(static_cast<std::size_t>(at), static_cast<std::size_t>(length), chunk.data(),
                         static_cast<std::size_t>(length)) != 0)
            fail("the copy differs from the phone's file in the bytes from " + std::to_string(at));
    }
}

void copy_from_phone(NetConnection *conn, const std::vector<Media> &media, const std::string &out_dir) {
    if (media.empty()) fail("the catalogue is empty: nothing to copy");
    const Media &pick = *std::max_element(media.begin(), media.end(), [](const Media &a, const Media &b) { return a.size < b.size; });
    step(5, "Copying " + pick.path + " from the phone");
    NFCFileRef *ref = nullptr;
    check(NFCFileRefOpen(conn, pick.path.c_str(), "rb", &ref), "opening " + pick.path);
    const std::string data = read_remote(conn, ref, static_cast<int64_t>(pick.size), true);
    if (data.size() != pick.size)
        fail("read " + std::to_string(data.size()) + " bytes, the catalogue says " + std::to_string(pick.size));
    const std::string local = out_dir + "/" + pick.name;
    std::ofstream(local, std::ios::binary | std::ios::trunc).write(data.data(), static_cast<std::streamsize>(data.size()));
    std::ifstream saved(local, std::ios::binary);
    const std::string on_disk((std::istreambuf_iterator<char>(saved)), std::istreambuf_iterator<char>());
    if (on_disk != data) fail("could not save the copy to " + local);
    verify_backwards(conn, ref, on_disk);
    check(NFCFileRefClose(conn, ref), "closing " + pick.path);
    std::printf("      saved %s; verified byte for byte against a second read, backwards with seeks\n", local.c_str());
}

// ---- 6. Write a file to the phone ------------------------------------------------------------

void write_to_phone(NetConnection *conn) {
    step(6, "Writing a file to the phone and deleting it");
    const std::string dir = "/Download/wrenlink-demo", path = dir + "/hello.bin";
    const AgentStatus made = NFCFileRefMkDir(conn, dir.c_str());
    if (made != 0 && made != 17 /* EEXIST: left by an earlier run */) check(made, "making " + dir);

    std::string content = "Written by wrenlink-demo.\n";
    for (int i = 0; content.size() < 100 * 1000; ++i) content += static_cast<char>((i * 131 + 7) & 0xFF);
    NFCFileRef *ref = nullptr;
    check(NFCFileRefOpen(conn, path.c_str(), "wb", &ref), "creating " + path);
    for (std::size_t at = 0; at < content.size(); at += kChunk) {
        const auto n = static_cast<int32_t>(std::min<std::size_t>(kChunk, content.size() - at));
        check(NFCFileRefWrite(conn, ref, content.data() + at, n), "writing " + path);
    }
    check(NFCFileRefClose(conn, ref), "closing " + path);
    check(NFCFileRefAccess(conn, path.c_str()), "checking " + path);

    check(NFCFileRefOpen(conn, path.c_str(), "rb", &ref), "reopening " + path);
    const std::string back = read_remote(conn, ref, static_cast<int64_t>(content.size()), false);
    check(NFCFileRefClose(conn, ref), "closing " + path);
    if (back != content) fail("the file read back differs from what was written");
    std::printf("      wrote %s (%s), read it back equal\n", path.c_str(), human_size(content.size()).c_str());

    check(NFCFileRefDelete(conn, path.c_str()), "deleting " + path);
    if (NFCFileRefAccess(conn, path.c_str()) == 0) fail(path + " is still there after its deletion");
    check(NFCFileRefDelete(conn, dir.c_str()), "deleting " + dir);
    std::printf("      deleted it and its folder; the phone no longer has them\n");
}

}  // namespace

int main(int argc, char **argv) {
    const Options options = parse(argc, argv);
    g_tty = ::isatty(STDOUT_FILENO) == 1;
    std::printf("Wrenlink demo\n");
    const std::string phone = list_phones();
    NetConnection *conn = connect_to_agent(options, phone);
    scan(conn);
    const auto media = list_media(conn);
    copy_from_phone(conn, media, options.out);
    write_to_phone(conn);
    if (!g_installed) NetConnectionClose(conn);
    else if (!g_installed->remove()) fail(g_installed->error());
    std::printf("All steps passed.\n");
    stop_adb_server_we_started();
    return 0;
}
