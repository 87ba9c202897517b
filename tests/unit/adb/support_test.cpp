#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "adb/runner/command_line.h"
#include "adb/operations/device_files.h"
#include "adb/text/string_split.h"

namespace {
using Pieces = std::vector<std::string>;

struct SplitCase {
    std::string text;
    std::string separators;
    Pieces pieces;
};
}  // namespace

TEST(StringSplit, DropsEmptyPiecesTreatsSeparatorsAsASetAndAppends) {
    using namespace std::string_literals;
    const SplitCase cases[] = {
        {"", "\n", {}},
        {"abc", "", {}},
        {"a\nb", "\n", {"a", "b"}},
        {"\na\n\nb\n", "\n", {"a", "b"}},
        {"a \tb\t c", " \t", {"a", "b", "c"}},
        {"a\0b"s, "\0"s, {"a", "b"}},
    };
    for (auto c : cases) {
        Pieces out{"kept"};  // the pieces go behind what the vector held
        EXPECT_EQ(StringSplit(out, c.text, c.separators), static_cast<int32_t>(c.pieces.size()));
        c.pieces.insert(c.pieces.begin(), "kept");
        EXPECT_EQ(out, c.pieces) << "text: " << c.text;
    }
}

TEST(FormatCommand, RefusesLinesThatDoNotFitTheBuffer) {
    using wrenlink::adb::format_command;
    using wrenlink::adb::tool_line;
    const std::string fits(511 - 4, 'x');
    EXPECT_EQ(format_command("abc %s", fits.c_str())->size(), 511u);
    EXPECT_FALSE(format_command("abcd %s", fits.c_str()).has_value());
    // The serial counts in the whole line: " -s " + 501 + " shell" is 511 characters.
    const std::string serial(501, 's');
    EXPECT_EQ(tool_line(serial.c_str(), "shell")->size(), 511u);
    EXPECT_FALSE(tool_line(serial.c_str(), "shell!").has_value());
}
