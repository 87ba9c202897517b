#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Wrenlink/command_line.h"
#include "Wrenlink/support.h"

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
        {"\n\n\n", "\n", {}},
        {"a\nb", "\n", {"a", "b"}},
        {"\na\n\nb\n", "\n", {"a", "b"}},
        {"a \tb\t c", " \t", {"a", "b", "c"}},
        {"x\r\ny", "\n", {"x\r", "y"}},
        {"a\0b"s, "\n", {"a\0b"s}},  // a NUL is a byte like any other
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
    EXPECT_EQ(wrenlink::format_command("%s -s %s shell %s", "", "SER", "id"), " -s SER shell id");
    const std::string fits(511 - 4, 'x');
    EXPECT_EQ(wrenlink::format_command("abc %s", fits.c_str())->size(), 511u);
    EXPECT_FALSE(wrenlink::format_command("abcd %s", fits.c_str()).has_value());
}
