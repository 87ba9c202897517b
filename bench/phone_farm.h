// Many phones for the library's adb half to meet through the real adb: simulated phones
// (tools/wrenlink-phone, all in one process) attached to a private adb server on a port of its own,
// each with a reference agent of its own behind a forward (AdbForward).
//
// The library finds its tool beside the bench binary (counting_adb.c, which counts each run and
// becomes /usr/bin/adb); the server's port reaches every run through ANDROID_ADB_SERVER_PORT in
// this process's environment, which every child inherits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "reference_agent.h"

namespace wrenlink::bench {

// CPU time (user and system, in seconds) used so far: by the adb server, by the phone side (the
// phones' process and their agents, which on real hardware run on the phones) and by this process
// (the library and the bench). Zero where the system does not tell it.
struct CpuTimes {
    double server = 0, phones = 0, bench = 0;
    CpuTimes operator-(const CpuTimes &o) const { return {server - o.server, phones - o.phones, bench - o.bench}; }
    CpuTimes &operator+=(const CpuTimes &o) {
        server += o.server, phones += o.phones, bench += o.bench;
        return *this;
    }
};

class PhoneFarm {
public:
    // The farm of `phones` phones, made on the first call and kept while the count stays; another
    // count ends the farm before (the server is restarted, so that it lists only the new phones).
    // Null, with the reason in `error`, when it cannot be had.
    static PhoneFarm *with(std::size_t phones, std::string &error);
    // Ends the farm and the server; for the end of the run.
    static void shut_down();

    // Runs of the tool by this process so far, as the counting tool logged them.
    static long tool_runs();
    // A directory for the benchmarks' own files.
    static const std::string &scratch();

    std::size_t size() const { return serials_.size(); }
    // "127.0.0.1:PORT", the name the server gives the phone.
    const std::string &serial(std::size_t i) const { return serials_.at(i); }
    // The local port that the server forwards to phone i's agent.
    uint16_t agent_port(std::size_t i) const { return forwards_.at(i); }
    CpuTimes cpu_times() const;

    PhoneFarm(const PhoneFarm &) = delete;
    PhoneFarm &operator=(const PhoneFarm &) = delete;
    ~PhoneFarm();

private:
    PhoneFarm() = default;
    bool start(std::size_t phones, std::string &error);
    bool start_phones(std::size_t phones, std::string &error);
    bool attach_phones(std::string &error);
    bool forward_agents(std::string &error);

    pid_t server_ = -1;
    support::ChildProcess phones_;
    std::vector<std::string> serials_;
    std::vector<AgentProcess> agents_;
    std::vector<uint16_t> forwards_;
};

}  // namespace wrenlink::bench
