// The agent's log: one line per request with --verbose, and the few lines it always prints.
#pragma once

#include <string>

namespace wrenlink::reference_agent {

class Log {
public:
    explicit Log(bool verbose = false) : verbose_(verbose) {}
    bool verbose() const { return verbose_; }
    // Always printed, on standard error.
    void say(const std::string &line) const;
    // Printed with --verbose only.
    void detail(const std::string &line) const {
        if (verbose_) say(line);
    }

private:
    bool verbose_;
};

// "#3": how connection 3 reads in the log.
std::string connection_tag(int number);

// "0" or "2 (No such file or directory)": how a status reads in the log.
std::string describe_status(uint32_t status);

}  // namespace wrenlink::reference_agent
