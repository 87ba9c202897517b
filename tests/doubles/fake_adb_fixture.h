// The stand-in adb tool from a test's side: writes its scenario, points it at files of a
// temporary folder of its own, and reads back what it logged. See README.md beside this file.
//
//   FakeAdb adb;
//   adb.scenario(R"(when "getprop ro.product.model" out "Pixel\r\n")");
//   ... run an operation ...
//   EXPECT_EQ(adb.runs().back(), (Argv{adb.tool(), "-s", "SER", "shell", "getprop", "ro.product.model"}));
#pragma once

#include <string>
#include <vector>

#include "doubles/temp_tree.h"

namespace wrenlink::test {

using Argv = std::vector<std::string>;

struct FakeAdbRecord {
    std::string kind;  // argv, exit, term, bg, fds
    long pid = 0;
    // argv: the arguments, argv[0] first; exit: the status; bg: the background process number;
    // fds: the open descriptors; term: nothing.
    std::vector<std::string> words;
};

class FakeAdb {
public:
    FakeAdb();
    ~FakeAdb();
    FakeAdb(const FakeAdb &) = delete;
    FakeAdb &operator=(const FakeAdb &) = delete;

    // Replaces the scenario.
    void scenario(const std::string &text) const;

    std::vector<FakeAdbRecord> records() const;
    // The argv of every run so far, in order.
    std::vector<Argv> runs() const;
    // Every byte the interactive shells read, in order.
    std::string shell_input() const;

    // The tool's path as the library finds it beside a test binary of <build>/tests.
    static std::string tool();
    // Where the stand-in was built (to copy it elsewhere).
    static std::string built();

private:
    TempTree files_;
};

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


}  // namespace wrenlink::test
