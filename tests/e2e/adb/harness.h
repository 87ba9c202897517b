// What an end-to-end run against the real adb tool needs: scratch directories, child processes
// with a deadline, simulated phones (tools/wrenlink-phone) and a private adb server.
//
//   PrivateAdbServer adb;                      // its own port and home; killed at the end
//   PhoneProcess phones({{profile_path, sandbox_dir}});
//   adb.connect(phones.serial(0));
//   RunResult r = adb.run({"-s", phones.serial(0), "shell", "getprop", "ro.product.model"});
//
// The server's port and home are set in this process's environment, so that every adb started
// from here on (by the tests or by the library) talks to the private server and never to a
// default one on port 5037.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "doubles/temp_tree.h"
#include "support/child_process.h"

namespace wrenlink::test {

// Debian's adb; the tests that need it skip when it is not installed.
inline constexpr const char *kSystemAdb = "/usr/bin/adb";
bool system_adb_available();

std::string random_bytes(std::size_t size, unsigned seed);

struct RunResult {
    int status = -1;      // exit status, or 128 + signal; -1 when it could not be started
    std::string output;   // standard output, then standard error
    bool timed_out = false;
};

// Runs a program with the given standard input and collects what it prints. A run that is not over
// by the deadline is killed (a hung tool must not hang the test suite).
RunResult run_program(const std::vector<std::string> &argv, std::string_view input = {},
                      std::chrono::milliseconds deadline = std::chrono::seconds(30));

// One or more simulated phones in one wrenlink-phone process, each on a free loopback port.
class PhoneProcess {
public:
    struct Phone {
        std::string profile;   // path of the profile file
        std::string sandbox;   // directory that plays the phone's "/"
    };
    explicit PhoneProcess(const std::vector<Phone> &phones);
    PhoneProcess(const PhoneProcess &) = delete;
    PhoneProcess &operator=(const PhoneProcess &) = delete;
    ~PhoneProcess();

    bool ok() const noexcept { return !serials_.empty(); }
    // "127.0.0.1:PORT", the name the adb server gives the phone once connected.
    const std::string &serial(std::size_t i) const { return serials_.at(i); }
    unsigned port(std::size_t i) const;
    // Ends the process (SIGTERM, then waits for it).
    void stop();

private:
    support::ChildProcess process_;
    std::vector<std::string> serials_;
};

class PrivateAdbServer {
public:
    PrivateAdbServer();
    PrivateAdbServer(const PrivateAdbServer &) = delete;
    PrivateAdbServer &operator=(const PrivateAdbServer &) = delete;
    ~PrivateAdbServer();

    bool ok() const noexcept { return started_; }
    unsigned port() const noexcept { return port_; }
    // adb with these arguments, against the private server.
    RunResult run(const std::vector<std::string> &args, std::string_view input = {},
                  std::chrono::milliseconds deadline = std::chrono::seconds(30)) const;
    // `adb connect`, then waits until the server lists the phone as "device". False on failure.
    bool connect(const std::string &serial) const;

private:
    TempTree home_;
    unsigned port_ = 0;
    bool started_ = false;
};

}  // namespace wrenlink::test
