#include "agent_install.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

namespace wrenlink_example {

namespace {

// The phone builds, by the names that ro.product.cpu.abi gives.
constexpr const char *kAbis[] = {"arm64-v8a", "armeabi-v7a", "x86_64", "x86"};

std::string trimmed(std::string text) {
    while (!text.empty() && std::strchr(" \t\r\n", text.back()) != nullptr) text.pop_back();
    const auto first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? std::string() : text.substr(first);
}

bool contains(const std::string &text, const char *part) { return text.find(part) != std::string::npos; }

std::vector<std::string> words_of(const std::string &line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

bool is_known_abi(const std::string &abi) {
    for (const char *known : kAbis)
        if (abi == known) return true;
    return false;
}

bool is_file(const std::string &path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The size that an `ls -l` line gives: the field before the date (YYYY-MM-DD), in the phones'
// toolbox and toybox formats alike.
std::optional<long long> listed_size(const std::string &listing) {
    const auto words = words_of(listing);
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string &w = words[i];
        if (w.size() == 10 && w[4] == '-' && w[7] == '-' && words[i - 1].find_first_not_of("0123456789") == std::string::npos)
            return std::stoll(words[i - 1]);
    }
    return std::nullopt;
}

std::string adb(const std::string &line) {
    char output[2048] = {};
    AdbCommand(line.c_str(), output, sizeof output, true);
    return trimmed(output);
}

// A forward's answer: nothing, or the local port alone (adb of some versions prints it).
bool forward_done(const std::string &answer, uint32_t port) { return answer.empty() || answer == std::to_string(port); }

// The library's calls have no time limit, and an agent that accepts a connection but never answers
// would hold a ping for ever: past the deadline a watchdog closes the connection from its own
// thread, which is the header's way to give up on a blocked call (the ping then fails).
int32_t ping_before(NetConnection *conn, std::chrono::steady_clock::time_point deadline) {
    std::mutex mutex;
    std::condition_variable answered;
    bool done = false;
    std::thread watchdog([&] {
        std::unique_lock lock(mutex);
        if (!answered.wait_until(lock, deadline, [&] { return done; })) NetConnectionClose(conn);
    });
    const int32_t result = TestPing(conn);
    {
        const std::lock_guard lock(mutex);
        done = true;
    }
    answered.notify_one();
    watchdog.join();
    return result;
}

}  // namespace

std::string default_agents_dir() {
    char path[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) return {};
    const std::string executable(path, static_cast<std::size_t>(n));
    return executable.substr(0, executable.rfind('/')) + "/../share/wrenlink/phone-agents";
}

AgentInstall::AgentInstall(AgentInstallSettings settings, Report report)
    : settings_(std::move(settings)), report_(std::move(report)) {
    if (settings_.agents_dir.empty()) settings_.agents_dir = default_agents_dir();
}

AgentInstall::~AgentInstall() {
    report_ = nullptr;   // what the lines went to may be gone by now
    remove();
}

bool AgentInstall::install() {
    if (pick_phone() && pick_build() && push() && start() && forward() && connect()) return true;
    const std::string why = error_;
    error_ = remove() ? why : why + "; and then " + error_;
    return false;
}

bool AgentInstall::fail(const std::string &why) {
    error_ = why;
    return false;
}

void AgentInstall::report(const std::string &line) const {
    if (report_) report_(line);
}

std::string AgentInstall::shell(const std::string &line) const {
    char output[2048] = {};
    AdbShellCommand(serial_.c_str(), line.c_str(), output, true);
    return trimmed(output);
}

bool AgentInstall::pick_phone() {
    const char *tool = AndGetAdbFullpath();
    if (::access(tool, X_OK) != 0) return fail(std::string("adb is missing: the library looks for it at ") + tool);
    PhoneInfo *phones = nullptr;
    uint32_t count = 0;
    AdbGetPhoneList(&phones, &count);
    bool listed = false, authorised = false;
    for (uint32_t i = 0; i < count; ++i) {
        const std::string serial(phones[i].serial, strnlen(phones[i].serial, sizeof phones[i].serial));
        const bool wanted = settings_.serial.empty() ? phones[i].authorized != 0 : serial == settings_.serial;
        if (wanted && !listed) {
            listed = true;
            authorised = phones[i].authorized != 0;
            serial_ = serial;
        }
    }
    WrenlinkFree(phones);
    if (!settings_.serial.empty() && !listed) return fail("adb lists no phone " + settings_.serial);
    if (!listed) return fail(count == 0 ? "adb lists no phone" : "no phone has authorised this computer yet (accept its key on the phone)");
    if (!authorised) return fail("phone " + serial_ + " has not authorised this computer yet (accept its key on the phone)");
    return true;
}

bool AgentInstall::pick_build() {
    const std::string abi = shell("getprop ro.product.cpu.abi");
    std::vector<std::string> wanted = {abi};
    std::string said = "ro.product.cpu.abi=" + abi;
    auto build_for = [&](const std::string &name) { return settings_.agents_dir + "/" + name + "/wrenlink-agent"; };
    if (!is_known_abi(abi) || !is_file(build_for(abi))) {
        const std::string list = shell("getprop ro.product.cpu.abilist");
        said += ", ro.product.cpu.abilist=" + list;
        std::istringstream in(list);
        for (std::string name; std::getline(in, name, ',');) wanted.push_back(trimmed(name));
    }
    for (const auto &name : wanted) {
        if (is_known_abi(name) && is_file(build_for(name))) {
            abi_ = name;
            build_ = build_for(name);
            report("the phone's processor: " + abi_ + "; its build: " + build_);
            return true;
        }
    }
    std::string builds;
    for (const char *known : kAbis)
        if (is_file(build_for(known))) builds += std::string(builds.empty() ? "" : ", ") + known;
    return fail("no agent build for this phone's processor (" + said + "); builds in " + settings_.agents_dir + ": " +
                (builds.empty() ? "none" : builds));
}

bool AgentInstall::push() {
    struct stat local {};
    if (::stat(build_.c_str(), &local) != 0) return fail("cannot read " + build_ + ": " + std::strerror(errno));
    // A running agent's file is never written over in place (a phone refuses that, and a program
    // whose file changes under it may crash): the push makes a new one.
    shell(std::string("rm -f ") + kAgentPhonePath);
    if (AdbPushFileEx(serial_.c_str(), build_.c_str(), kAgentPhonePath) != 0) return fail("the push could not be run");
    // The push's result says only that adb ran: the phone's listing says what arrived.
    const std::string listing = shell(std::string("ls -l ") + kAgentPhonePath);
    const auto size = listed_size(listing);
    if (!size) return fail(std::string("the push was refused: the phone has no ") + kAgentPhonePath + " (ls: " + listing + ")");
    if (*size != local.st_size)
        return fail("the push was cut short: the phone holds " + std::to_string(*size) + " of " +
                    std::to_string(local.st_size) + " bytes");
    report(std::string("pushed to ") + kAgentPhonePath + " (" + std::to_string(*size) + " bytes, checked on the phone)");
    return true;
}

bool AgentInstall::start() {
    const std::string chmod = shell(std::string("chmod 755 ") + kAgentPhonePath);
    if (!chmod.empty()) return fail("the phone did not make the agent executable: " + chmod);
    const std::string command = std::string(kAgentPhonePath) + " --detach --control localabstract:" + kAgentControlName +
                                " --events localabstract:" + kAgentEventsName + " /sdcard";
    started_ = true;   // from here on, every way out stops it
    start_text_ = shell(command);
    if (contains(start_text_, "already runs")) {
        // One left by an earlier run that ended without stopping it: this run's build replaces it.
        report("an agent from an earlier run was running: stopping it (" + shell(std::string(kAgentPhonePath) + " --stop") + ")");
        start_text_ = shell(command);
    }
    if (!contains(start_text_, "listening on")) return fail("the agent did not start: " + start_text_);
    report("started: " + start_text_);
    return true;
}

// The agent listens on abstract sockets, not on a phone port: no clash with other apps' ports, and
// the peer's uid comes with each connection. AdbForward forms only `forward tcp:L tcp:P`, so the
// forwards are whole adb lines through AdbCommand, still the library's exported calls.
bool AgentInstall::forward() {
    const std::pair<uint32_t, std::string> forwards[] = {
        {settings_.control_port, std::string("localabstract:") + kAgentControlName},
        {kEventPort, std::string("localabstract:") + kAgentEventsName},
    };
    std::istringstream list(adb(" forward --list"));
    for (std::string line; std::getline(list, line);) {
        const auto w = words_of(line);   // SERIAL LOCAL REMOTE
        if (w.size() != 3) continue;
        for (const auto &[port, remote] : forwards)
            if (w[1] == "tcp:" + std::to_string(port) && (w[0] != serial_ || w[2] != remote))
                return fail("127.0.0.1:" + std::to_string(port) + " is already forwarded to " + w[2] + " of " + w[0] +
                            " (adb forward --remove tcp:" + std::to_string(port) + " ends that)");
    }
    forwarded_ = true;
    for (const auto &[port, remote] : forwards) {
        const std::string answer = adb(" -s " + serial_ + " forward tcp:" + std::to_string(port) + " " + remote);
        if (!forward_done(answer, port)) return fail("adb did not forward 127.0.0.1:" + std::to_string(port) + ": " + answer);
    }
    report("adb forwards 127.0.0.1:" + std::to_string(settings_.control_port) + " and 127.0.0.1:" + std::to_string(kEventPort) +
           " to the agent's sockets " + kAgentControlName + " and " + kAgentEventsName);
    return true;
}

bool AgentInstall::connect() {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds(settings_.start_seconds);
    do {
        // adb's server takes a connection before the phone's end is there, so only the ping tells.
        if (NetConnection *conn = NetConnectionOpen("127.0.0.1", settings_.control_port)) {
            if (ping_before(conn, deadline) == 0) {
                connection_ = conn;
                report("connected, ping answered");
                return true;
            }
            NetConnectionClose(conn);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    } while (Clock::now() < deadline);
    return fail("the agent did not answer a ping within " + std::to_string(settings_.start_seconds) +
                " s (its start printed: " + start_text_ + ")");
}

bool AgentInstall::remove() {
    if (connection_ != nullptr) NetConnectionClose(connection_);
    connection_ = nullptr;
    bool stopped = true;
    if (started_) {
        started_ = false;
        const std::string answer = shell(std::string(kAgentPhonePath) + " --stop");
        stopped = !contains(answer, "wrenlink-agent:") && !contains(answer, "/system/bin/sh:") && !contains(answer, "error");
        if (!stopped) error_ = "the agent did not stop: " + answer;
        else report("stopped the agent on the phone" + (answer.empty() ? std::string() : " (" + answer + ")"));
    }
    if (forwarded_) {
        forwarded_ = false;
        adb(" -s " + serial_ + " forward --remove tcp:" + std::to_string(settings_.control_port));
        adb(" -s " + serial_ + " forward --remove tcp:" + std::to_string(kEventPort));
        report("removed the forwards");
    }
    return stopped;
}

}  // namespace wrenlink_example
