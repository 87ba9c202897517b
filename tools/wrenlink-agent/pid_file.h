// The pid file of an agent that runs on its own (--detach, or any start given --pid-file), and
// --stop, which ends the agent it names.
//
// The agent holds a lock (flock) on its pid file for as long as it lives, and the kernel drops
// that lock when the agent ends, however it ends. So a locked file means a live agent whose pid is
// the one written in it; an unlocked one is stale, whatever pid it holds, and a pid that the
// system has since given to another program is never signalled.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/unique_fd.h"

namespace wrenlink::reference_agent {

// `wrenlink-agent.pid` in the directory of the running executable; empty when its path cannot be
// had.
std::string default_pid_file();

// The log file of a detached agent: the pid file's path without ".pid", then ".log".
std::string log_file_for(const std::string &pid_file);

class PidFile {
public:
    enum class Claim { Taken, HeldByAnother, Failed };

    PidFile() = default;
    PidFile(PidFile &&) = default;
    PidFile &operator=(PidFile &&) = default;
    // Removes the file, if it is still ours, and drops the lock.
    ~PidFile();

    // Creates (or reuses a stale) file at `path` and locks it. HeldByAnother with `holder` set to
    // the running agent's pid (0 if it has not written it yet); Failed with `error` set.
    Claim claim(const std::string &path, pid_t &holder, int &error);
    // Writes `pid` as the file's whole content; false, with the reason said on standard error,
    // when it cannot.
    bool write(pid_t pid);
    explicit operator bool() const { return static_cast<bool>(fd_); }

private:
    std::string path_;
    UniqueFd fd_;
};

// --stop: ends the agent that holds the pid file at `path` (SIGTERM, then SIGKILL after five
// seconds) and removes the file. Prints what it did on standard output ("stopped the agent (pid
// N)", "no agent running") and returns 0, or prints why it failed on standard error and returns 1.
int stop_agent(const std::string &path);

}  // namespace wrenlink::reference_agent
