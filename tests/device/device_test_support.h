// Helpers of the device operation tests, which drive the stand-in adb tool.
#pragma once

#include <string>
#include <vector>

#include "doubles/fake_adb_fixture.h"

namespace wrenlink::test {

// The arguments of `adb -s <serial> shell <words...>` as the tool receives them.
inline Argv shell_argv(const std::string &serial, const std::vector<std::string> &words) {
    Argv argv{FakeAdb::tool(), "-s", serial, "shell"};
    argv.insert(argv.end(), words.begin(), words.end());
    return argv;
}

inline Argv tool_argv(const std::vector<std::string> &words) {
    Argv argv{FakeAdb::tool()};
    argv.insert(argv.end(), words.begin(), words.end());
    return argv;
}

// A text longer than any command line may be.
inline std::string too_long() { return std::string(600, 'p'); }

}  // namespace wrenlink::test
