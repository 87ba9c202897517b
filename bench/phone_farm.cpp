#include "phone_farm.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "raw_link.h"
#include "support/adb_server.h"

namespace wrenlink::bench {

namespace {

namespace fs = std::filesystem;

std::unique_ptr<PhoneFarm> &current() {
    static std::unique_ptr<PhoneFarm> farm;
    return farm;
}

// A loopback port that was free a moment ago.
uint16_t free_port() {
    const UniqueFd listener = listen_loopback(0);
    return listener ? port_of(listener.get()) : 0;
}

std::string adb(const std::string &arguments) {
    char output[2048] = {};
    AdbCommand((" " + arguments).c_str(), output, sizeof output, true);
    return output;
}

// The scratch directory, with the environment that points every run of the tool at the private
// server (and its key at a home of our own); set once, before any thread runs.
struct Environment {
    std::string scratch = make_scratch_directory();
    Environment() {
        if (scratch.empty()) return;
        support::use_private_adb_server(free_port(), scratch);
        ::setenv("WRENLINK_BENCH_TOOL_LOG", (scratch + "/tool-runs.log").c_str(), 1);
    }
    ~Environment() {
        std::error_code ec;
        if (!scratch.empty()) fs::remove_all(scratch, ec);
    }
};

const Environment &environment() {
    static const Environment env;
    return env;
}

// The CPU seconds that a process has used so far, from /proc; 0 where that cannot be read.
double cpu_seconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const auto nameEnd = text.rfind(')');
    if (nameEnd == std::string::npos) return 0;
    // After the name: the state, ten more fields, then the user and the system time in ticks.
    std::istringstream fields(text.substr(nameEnd + 1));
    std::string skipped;
    for (int i = 0; i < 11; ++i) fields >> skipped;
    unsigned long user = 0, system = 0;
    fields >> user >> system;
    return static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// How many phones the server lists as attached and online.
std::size_t online_phones() {
    const std::string text = adb("devices");
    std::size_t count = 0;
    for (std::size_t at = text.find("\tdevice"); at != std::string::npos; at = text.find("\tdevice", at + 1)) ++count;
    return count;
}

}  // namespace

PhoneFarm *PhoneFarm::with(std::size_t phones, std::string &error) {
    std::unique_ptr<PhoneFarm> &farm = current();
    if (farm && farm->size() == phones) return farm.get();
    farm.reset();
    std::unique_ptr<PhoneFarm> fresh(new PhoneFarm);
    if (!fresh->start(phones, error)) return nullptr;
    farm = std::move(fresh);
    return farm.get();
}

void PhoneFarm::shut_down() { current().reset(); }

long PhoneFarm::tool_runs() {
    std::ifstream log(environment().scratch + "/tool-runs.log", std::ios::binary);
    return static_cast<long>(std::count(std::istreambuf_iterator<char>(log), {}, '\n'));
}

const std::string &PhoneFarm::scratch() { return environment().scratch; }

bool PhoneFarm::start(std::size_t phones, std::string &error) {
    if (scratch().empty()) {
        error = "no scratch directory";
        return false;
    }
    adb("kill-server");
    if (adb("start-server").find("failed") != std::string::npos) {
        error = "the private adb server did not start";
        return false;
    }
    server_ = support::adb_server_pid();
    return start_phones(phones, error) && attach_phones(error) && forward_agents(error);
}

// One process serves every phone, each on a port of its own and with a sandbox of its own (kept
// from farm to farm: a phone keeps its state across restarts).
bool PhoneFarm::start_phones(std::size_t phones, std::string &error) {
    std::vector<std::string> argv{WRENLINK_PHONE_PATH};
    for (std::size_t i = 0; i < phones; ++i) {
        argv.emplace_back("--phone");
        argv.push_back("port=0,profile=" WRENLINK_PHONE_PROFILE ",sandbox=" + scratch() + "/phones/" + std::to_string(i));
    }
    fs::create_directories(scratch() + "/phones");
    phones_ = support::ChildProcess(argv);
    while (serials_.size() < phones) {
        const std::string line = phones_.read_line();
        if (line.rfind("ready ", 0) != 0) {
            error = WRENLINK_PHONE_PATH " did not bring its phones up";
            return false;
        }
        serials_.push_back(line.substr(6));
    }
    return true;
}

bool PhoneFarm::attach_phones(std::string &error) {
    for (const auto &serial : serials_) adb("connect " + serial);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (online_phones() < serials_.size()) {
        if (std::chrono::steady_clock::now() > end) {
            error = "the server did not list every phone as online";
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
}

// Every agent serves the reference agent's files (the same directory); only its port is its own.
bool PhoneFarm::forward_agents(std::string &error) {
    const ReferenceAgent *reference = ReferenceAgent::get();
    if (reference == nullptr) {
        error = "the reference agent's files could not be made";
        return false;
    }
    for (const auto &serial : serials_) {
        AgentProcess &agent = agents_.emplace_back(reference->root());
        const uint16_t local = free_port();
        if (agent.port() == 0 || local == 0) {
            error = "an agent did not start";
            return false;
        }
        AdbForward(serial.c_str(), local, agent.port());
        forwards_.push_back(local);
    }
    return true;
}

CpuTimes PhoneFarm::cpu_times() const {
    CpuTimes times;
    if (server_ > 0) times.server = cpu_seconds(server_);
    times.phones = cpu_seconds(phones_.pid());
    for (const AgentProcess &agent : agents_) times.phones += cpu_seconds(agent.pid());
    times.bench = cpu_seconds(::getpid());
    return times;
}

PhoneFarm::~PhoneFarm() {
    adb("kill-server");  // the server drops its forwards and phones before they go
}

}  // namespace wrenlink::bench
