#include "soak/farm.h"

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

#include "base/unique_fd.h"
#include "soak/phone_tree.h"

namespace wrenlink::soak {

namespace {

namespace fs = std::filesystem;

// The first port of the system's ephemeral range (32768 where it cannot be read).
uint16_t ephemeral_start() {
    unsigned low = 32768, high = 0;
    if (std::FILE *f = std::fopen("/proc/sys/net/ipv4/ip_local_port_range", "re")) {
        if (std::fscanf(f, "%u %u", &low, &high) != 2) low = 32768;
        std::fclose(f);
    }
    return static_cast<uint16_t>(low);
}

bool port_free(uint16_t port) {
    const UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return fd && ::bind(fd.get(), reinterpret_cast<const sockaddr *>(&at), sizeof at) == 0;
}

std::string describe(const char *what, std::size_t i, int status) {
    std::string text = std::string(what) + " of phone " + std::to_string(i);
    if (WIFSIGNALED(status)) return text + " died by signal " + std::to_string(WTERMSIG(status));
    return text + " exited with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::vector<uint16_t> free_low_ports(std::size_t count) {
    std::vector<uint16_t> ports;
    const uint16_t top = ephemeral_start();
    for (uint16_t p = top > 12000 ? static_cast<uint16_t>(top - 10000) : 2000; p < top && ports.size() < count; ++p)
        if (port_free(p)) ports.push_back(p);
    return ports;
}

bool Farm::start(std::size_t count, const std::string &scratch, std::string &error) {
    scratch_ = scratch;
    const std::vector<uint16_t> ports = free_low_ports(2 * count + 1);
    if (ports.size() < 2 * count + 1) {
        error = "no free loopback ports below the ephemeral range";
        return false;
    }
    serverPort_ = ports.back();
    for (std::size_t i = 0; i < count; ++i) {
        Phone p;
        p.port = ports[2 * i];
        p.controlPort = ports[2 * i + 1];
        p.serial = "127.0.0.1:" + std::to_string(p.port);
        p.sandbox = scratch + "/phone-" + std::to_string(i);
        p.storage = p.sandbox + "/sdcard";
        p.controlName = "wl-agent-" + std::to_string(i);
        p.eventsName = "wl-events-" + std::to_string(i);
        if (!make_phone_tree(p.storage)) {
            error = "cannot write the files of " + p.storage;
            return false;
        }
        phones_.push_back(std::move(p));
    }
    processes_ = std::vector<Processes>(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (!start_phone(i) || !start_agent(i)) {
            error = "phone " + std::to_string(i) + " or its agent did not start (see " + scratch + "/*.log)";
            return false;
        }
    }
    return true;
}

Farm::~Farm() {
    std::lock_guard lock(mutex_);
    for (Processes &p : processes_) {
        if (p.stalled) ::kill(p.phone.pid(), SIGCONT);
        p.agent.stop();
        p.phone.stop();
    }
}

bool Farm::start_phone(std::size_t i) {
    const Phone &p = phones_.at(i);
    support::ChildProcess::Options options;
    options.stderrPath = scratch_ + "/phone-" + std::to_string(i) + ".log";
    options.endWithParent = true;
    support::ChildProcess phone({WRENLINK_PHONE_PATH, "--phone",
                                 "port=" + std::to_string(p.port) + ",profile=" WRENLINK_PHONE_PROFILE ",sandbox=" + p.sandbox},
                                options);
    const bool ready = phone.read_line() == "ready " + p.serial;
    std::lock_guard lock(mutex_);
    processes_.at(i).phone = ready ? std::move(phone) : support::ChildProcess();
    processes_.at(i).stalled = false;
    return ready;
}

void Farm::kill_phone(std::size_t i) {
    std::lock_guard lock(mutex_);
    processes_.at(i).phone.stop(SIGKILL);
    processes_.at(i).stalled = false;
}

bool Farm::stall_phone(std::size_t i) {
    std::lock_guard lock(mutex_);
    Processes &p = processes_.at(i);
    if (!p.phone.started() || p.stalled || ::kill(p.phone.pid(), SIGSTOP) != 0) return false;
    p.stalled = true;
    return true;
}

void Farm::resume_phone(std::size_t i) {
    std::lock_guard lock(mutex_);
    Processes &p = processes_.at(i);
    if (p.stalled && p.phone.started()) ::kill(p.phone.pid(), SIGCONT);
    p.stalled = false;
}

bool Farm::start_agent(std::size_t i) {
    const Phone &p = phones_.at(i);
    support::ChildProcess::Options options;
    options.stderrPath = scratch_ + "/agent-" + std::to_string(i) + ".log";
    options.endWithParent = true;
    // A scan here lasts about as long as on a phone with a few thousand files (a few tenths of a
    // second), so that faults meet scans under way.
    support::ChildProcess agent({WRENLINK_AGENT_PATH, "--control", "localabstract:" + p.controlName, "--events",
                                 "localabstract:" + p.eventsName, "--scan-delay-us", "20000", p.storage},
                                options);
    const bool ready = agent.read_line() == "listening on localabstract:" + p.controlName;
    std::lock_guard lock(mutex_);
    processes_.at(i).agent = ready ? std::move(agent) : support::ChildProcess();
    return ready;
}

void Farm::kill_agent(std::size_t i) {
    std::lock_guard lock(mutex_);
    processes_.at(i).agent.stop(SIGKILL);
}

bool Farm::phone_up(std::size_t i) const {
    std::lock_guard lock(mutex_);
    return processes_.at(i).phone.started();
}

bool Farm::phone_stalled(std::size_t i) const {
    std::lock_guard lock(mutex_);
    return processes_.at(i).stalled;
}

bool Farm::agent_up(std::size_t i) const {
    std::lock_guard lock(mutex_);
    return processes_.at(i).agent.started();
}

std::vector<std::string> Farm::ended_by_themselves() {
    std::vector<std::string> ended;
    std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < processes_.size(); ++i) {
        int status = 0;
        if (processes_[i].phone.ended(status)) {
            ended.push_back(describe("the phone process", i, status));
            processes_[i].stalled = false;
        }
        if (processes_[i].agent.ended(status)) ended.push_back(describe("the agent", i, status));
    }
    return ended;
}

}  // namespace wrenlink::soak
