// The runner's pure parts: how a command line becomes the tool's arguments, and where the tool is.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "adb/runner/tokeniser.h"
#include "adb/runner/tool_path.h"

namespace {

using Args = std::vector<std::string>;
const std::string kTool = "/app/Resources/adb";

struct SplitCase {
    const char *line;
    Args args;
};

TEST(SplitCommandLine, Cases) {
    const SplitCase cases[] = {
        // The forms the operations build: a leading blank from the empty first %s.
        {" -s SER shell getprop ro.product.model", {"-s", "SER", "shell", "getprop", "ro.product.model"}},
        // No token at all: the tool's own path is the only argument.
        {"", {kTool}},
        {"\"\"", {kTool}},
        // Runs of blanks separate once; tabs are ordinary bytes.
        {"a\tb  c\t", {"a\tb", "c\t"}},
        // A quoted shell command stays one argument.
        {" -s S shell \"pm path com.x | grep package\"", {"-s", "S", "shell", "pm path com.x | grep package"}},
        // Blanks after the opening quote are lost, blanks before the closing one kept.
        {"\"  x  \"", {"x  "}},
        // A quote inside a word joins it to the quoted text with a blank; the closing quote ends
        // the token and what follows starts a new one.
        {"ab\"c d\"e f", {"ab c d", "e", "f"}},
        {"\"a\"\"b\"", {"a", "b"}},
        // An odd number of quotes: from the last opening quote on blanks don't separate.
        {"a \"b c  d  ", {"a", "b c  d  "}},
        // Parity runs over the whole line.
        {"\"a b\" c \"d e", {"a b", "c", "d e"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(wrenlink::adb::split_command_line(c.line, kTool), c.args) << "line: [" << c.line << "]";
    }
}

TEST(AdbPathForExecutable, CutsAtTheSecondSlashFromTheEnd) {
    EXPECT_EQ(wrenlink::adb::adb_path_for_executable("/work/build/tests/unit_tests"), "/work/build/Resources/adb");
    // Two slashes, the first at the start: cut to nothing.
    EXPECT_EQ(wrenlink::adb::adb_path_for_executable("/bin/app"), "/Resources/adb");
    // Fewer than two: the path stays whole; none at all (the path couldn't be had) gives the root.
    EXPECT_EQ(wrenlink::adb::adb_path_for_executable("/app"), "/app/Resources/adb");
    EXPECT_EQ(wrenlink::adb::adb_path_for_executable(""), "/Resources/adb");
    // No fixed limit on the length.
    const std::string deep = "/" + std::string(600, 'd') + "/bin/app";
    EXPECT_EQ(wrenlink::adb::adb_path_for_executable(deep), "/" + std::string(600, 'd') + "/Resources/adb");
}

}  // namespace
