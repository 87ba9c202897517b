#include "log.h"

#include <cstring>

#include "base/log.h"

namespace wrenlink::reference_agent {

void Log::say(const std::string &line) const {
    wrenlink::log_line("wrenlink-agent: " + line);
}

std::string connection_tag(int number) {
    std::string tag = "#";
    tag += std::to_string(number);
    return tag;
}

std::string describe_status(uint32_t status) {
    if (status == 0) return "0";
    return std::to_string(status) + " (" + std::strerror(static_cast<int>(status)) + ")";
}

}  // namespace wrenlink::reference_agent
