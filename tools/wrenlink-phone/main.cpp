// wrenlink-phone: simulated Android phones that a real adb server connects to over TCP (kUsage
// below says how to run it). Run under one of the phone's command names (getprop, pm, ls, ...) the
// program is that command instead; the phones link those names into their sandboxes.
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/unique_fd.h"
#include "base/platform.h"
#include "commands.h"
#include "log.h"
#include "phone.h"
#include "transport.h"

namespace phone {
namespace {

const char kUsage[] =
    "usage: wrenlink-phone [-v|-vv] --phone port=N,profile=FILE,sandbox=DIR [--phone ...]\n"
    "\n"
    "Simulated phones for a real adb server. Each --phone listens on 127.0.0.1:N (0 picks a free\n"
    "port), answers as the profile FILE says, keeps its storage in DIR (made if needed), and prints\n"
    "\"ready 127.0.0.1:PORT\" on standard output once it listens; `adb connect 127.0.0.1:PORT`\n"
    "attaches it. SIGINT or SIGTERM ends every phone.\n"
    "\n"
    "  -v, -vv   log connections and services (-vv: every transport message) on standard error\n"
    "\n"
    "Exit status: 0 after a stop signal; 1 when a profile, a sandbox or a port cannot be used\n"
    "(a profile line that is not key=value, or a setting it does not know, included); 2 for a\n"
    "bad command line.\n";

struct PhoneConfig {
    unsigned port = 0;
    std::string profile;
    std::string sandbox;
};

struct Connection {
    std::unique_ptr<Transport> transport;
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
};

struct ListeningPhone {
    std::unique_ptr<PhoneContext> context;
    wrenlink::UniqueFd listener;
    unsigned port = 0;
};

int g_stop_pipe[2] = {-1, -1};

void on_stop_signal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(g_stop_pipe[1], &byte, 1);
}

[[noreturn]] void usage_error(const std::string &why) {
    std::fprintf(stderr, "wrenlink-phone: %s\n%.*s", why.c_str(),
                 static_cast<int>(std::strchr(kUsage, '\n') - kUsage + 1), kUsage);
    std::exit(2);
}

PhoneConfig parse_phone_config(std::string_view text) {
    const std::string given(text);
    PhoneConfig config;
    bool have_port = false;
    while (!text.empty()) {
        const auto comma = text.find(',');
        const std::string_view item = text.substr(0, comma);
        text = comma == std::string_view::npos ? std::string_view{} : text.substr(comma + 1);
        const auto eq = item.find('=');
        const std::string_view key = item.substr(0, eq);
        const std::string value(eq == std::string_view::npos ? std::string_view{} : item.substr(eq + 1));
        if (key == "port" && eq != std::string_view::npos) {
            char *end = nullptr;
            const unsigned long port = std::strtoul(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || port > 65535)
                usage_error("--phone " + given + ": port takes a number from 0 to 65535, not '" + value + "'");
            config.port = static_cast<unsigned>(port);
            have_port = true;
        } else if (key == "profile" && eq != std::string_view::npos) {
            config.profile = value;
        } else if (key == "sandbox" && eq != std::string_view::npos) {
            config.sandbox = value;
        } else {
            usage_error("--phone " + given + ": '" + std::string(item) + "' is not port=N, profile=FILE or sandbox=DIR");
        }
    }
    if (!have_port || config.profile.empty() || config.sandbox.empty())
        usage_error("--phone " + given + ": a phone needs port=N,profile=FILE,sandbox=DIR");
    return config;
}

// Every profile is read and checked before any phone starts.
std::vector<Profile> load_profiles(const std::vector<PhoneConfig> &configs) {
    std::vector<Profile> profiles;
    for (const auto &config : configs) {
        std::string error;
        auto profile = Profile::load(config.profile, error);
        if (!profile) {
            std::fprintf(stderr, "wrenlink-phone: %s\n", error.c_str());
            std::exit(1);
        }
        profiles.push_back(std::move(*profile));
    }
    return profiles;
}

std::string absolute_path(const std::string &path) {
    char resolved[PATH_MAX];
    if (!::realpath(path.c_str(), resolved)) {
        std::fprintf(stderr, "wrenlink-phone: %s: %s\n", path.c_str(), std::strerror(errno));
        std::exit(1);
    }
    return resolved;
}

wrenlink::UniqueFd listen_on_loopback(unsigned port, unsigned &bound_port) {
    wrenlink::UniqueFd fd(wrenlink::platform::tcp_socket());
    if (!fd) return fd;
    const int one = 1;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || ::listen(fd.get(), 16) != 0 ||
        ::getsockname(fd.get(), reinterpret_cast<sockaddr *>(&address), &size) != 0)
        return {};
    bound_port = ntohs(address.sin_port);
    return fd;
}

ListeningPhone start_phone(const PhoneConfig &config, const Profile &profile, const std::string &executable) {
    const std::string profile_path = absolute_path(config.profile);
    ::mkdir(config.sandbox.c_str(), 0755);
    const std::string sandbox = absolute_path(config.sandbox);
    std::string error;
    ListeningPhone phone;
    phone.listener = listen_on_loopback(config.port, phone.port);
    if (!phone.listener) {
        std::fprintf(stderr, "wrenlink-phone: cannot listen on 127.0.0.1:%u: %s\n", config.port, std::strerror(errno));
        std::exit(1);
    }
    phone.context = std::make_unique<PhoneContext>(PhoneContext{"127.0.0.1:" + std::to_string(phone.port), profile_path,
                                                                profile, Sandbox(sandbox, profile), executable});
    if (!prepare_sandbox(*phone.context, error)) {
        std::fprintf(stderr, "wrenlink-phone: cannot prepare %s: %s\n", sandbox.c_str(), error.c_str());
        std::exit(1);
    }
    return phone;
}

void reap_finished(std::list<Connection> &connections) {
    for (auto it = connections.begin(); it != connections.end();) {
        if (*it->done) {
            it->thread.join();
            it = connections.erase(it);
        } else {
            ++it;
        }
    }
}

void accept_connection(ListeningPhone &phone, std::list<Connection> &connections) {
#if defined(__linux__)
    wrenlink::UniqueFd socket(::accept4(phone.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
#else
    wrenlink::UniqueFd socket(::accept(phone.listener.get(), nullptr, nullptr));
    if (socket) ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
#endif
    if (!socket) return;
    const int one = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    log(1, "%s: server connection accepted", phone.context->name.c_str());
    auto transport = std::make_unique<Transport>(std::move(socket), *phone.context);
    auto done = std::make_shared<std::atomic<bool>>(false);
    Transport *t = transport.get();
    std::thread thread([t, done] {
        t->serve();
        *done = true;
    });
    connections.push_back({std::move(transport), std::move(thread), std::move(done)});
}

int serve_phones(const std::vector<PhoneConfig> &configs) {
    const std::vector<Profile> profiles = load_profiles(configs);
    const std::string executable = wrenlink::platform::executable_path();
    if (executable.empty()) {
        std::fprintf(stderr, "wrenlink-phone: cannot find my own executable\n");
        return 1;
    }
    if (!wrenlink::platform::cloexec_pipe(g_stop_pipe)) return 1;
    struct sigaction stop {};
    stop.sa_handler = on_stop_signal;
    ::sigaction(SIGINT, &stop, nullptr);
    ::sigaction(SIGTERM, &stop, nullptr);
    ::signal(SIGPIPE, SIG_IGN);

    std::vector<ListeningPhone> phones;
    for (std::size_t i = 0; i < configs.size(); ++i) phones.push_back(start_phone(configs[i], profiles[i], executable));
    for (const auto &p : phones) std::printf("ready 127.0.0.1:%u\n", p.port);
    std::fflush(stdout);

    std::list<Connection> connections;
    std::vector<pollfd> fds;
    for (const auto &p : phones) fds.push_back({p.listener.get(), POLLIN, 0});
    fds.push_back({g_stop_pipe[0], POLLIN, 0});
    for (;;) {
        if (::poll(fds.data(), fds.size(), 1000) < 0 && errno != EINTR) break;
        if (fds.back().revents != 0) break;
        for (std::size_t i = 0; i < phones.size(); ++i)
            if (fds[i].revents & POLLIN) accept_connection(phones[i], connections);
        reap_finished(connections);
    }
    for (auto &c : connections) c.transport->stop();
    for (auto &c : connections) c.thread.join();
    return 0;
}

}  // namespace
}  // namespace phone

int main(int argc, char **argv) {
    const std::string_view invoked = argv[0];
    const std::string_view base = invoked.substr(invoked.rfind('/') + 1);
    const auto &names = phone::command_names();
    if (std::find(names.begin(), names.end(), base) != names.end()) return phone::run_command(base, argc, argv);

    std::vector<phone::PhoneConfig> configs;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(phone::kUsage, stdout);
            return 0;
        } else if (arg == "-v") {
            phone::set_verbosity(1);
        } else if (arg == "-vv") {
            phone::set_verbosity(2);
        } else if (arg == "--phone") {
            if (i + 1 == argc) phone::usage_error("--phone needs a value");
            configs.push_back(phone::parse_phone_config(argv[++i]));
        } else {
            phone::usage_error("unknown argument: " + arg);
        }
    }
    if (configs.empty()) phone::usage_error("no phone given (--phone)");
    return phone::serve_phones(configs);
}
