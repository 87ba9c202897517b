// The simulated phone's reading of a command line for program paths, and its choice of qemu-user
// program by an ELF header: where a path is a command and where it is not.
#include <gtest/gtest.h>

#include <string>

#include "base/wire.h"
#include "program_paths.h"

namespace phone {
namespace {

struct Routing {
    const char *line;
    const char *routed;   // @ stands for the quoted launcher
};

constexpr const char *kLauncher = "/sb/it's/wrenlink-exec";
constexpr const char *kQuoted = "'/sb/it'\\''s/wrenlink-exec'";

TEST(PhoneProgramPaths, CommandWordsWithASlashGetTheLauncher) {
    const Routing rows[] = {
        {"/data/local/tmp/a --x 1", "@ /data/local/tmp/a --x 1"},
        {"chmod 755 /d/a && /d/a; ./b|/c & (/e)", "chmod 755 /d/a && @ /d/a; @ ./b|@ /c & (@ /e)"},
        {"A=1 B=/x nohup exec /d/a", "A=1 B=/x nohup exec @ /d/a"},
        {"if true; then /d/a; fi", "if true; then @ /d/a; fi"},
        {"echo /d/a '/d/b; /d/c' \"x;/y\"", "echo /d/a '/d/b; /d/c' \"x;/y\""},
        {"echo $(cd /x; /y) `/z; w` \\; /v", "echo $(cd /x; /y) `/z; w` \\; /v"},
        {">/tmp/out 2>/dev/null </in /d/a", ">/tmp/out 2>/dev/null </in @ /d/a"},
        {"/d/a 2>&1 | /d/b", "@ /d/a 2>&1 | @ /d/b"},
        {"'/d/a b' x\n\"/d/c\"", "@ '/d/a b' x\n@ \"/d/c\""},
        {"getprop x # ; /d/a\n/d/b", "getprop x # ; /d/a\n@ /d/b"},
        {"ls /sdcard", "ls /sdcard"},
    };
    for (const auto &row : rows) {
        std::string expected = row.routed;
        for (std::size_t at; (at = expected.find('@')) != std::string::npos;) expected.replace(at, 1, kQuoted);
        EXPECT_EQ(route_program_paths(row.line, kLauncher), expected) << row.line;
    }
}

std::string elf_header(char word_size, char byte_order, uint32_t machine) {
    std::string h(20, '\0');
    h.replace(0, 4, "\x7f" "ELF");
    h[4] = word_size;
    h[5] = byte_order;
    wrenlink::wire::store_u32(h.data() + 16, 2u | machine << 16);   // e_type EXEC, then e_machine
    return h;
}

TEST(PhoneProgramPaths, EachPhoneProcessorHasItsEmulator) {
    EXPECT_EQ(emulator_for(elf_header(2, 1, 183)), "qemu-aarch64-static");
    EXPECT_EQ(emulator_for(elf_header(1, 1, 40)), "qemu-arm-static");
    EXPECT_EQ(emulator_for(elf_header(2, 1, 62)), "qemu-x86_64-static");
    EXPECT_EQ(emulator_for(elf_header(1, 1, 3)), "qemu-i386-static");
    // The wrong word size, byte order or magic, an unknown machine, a short header: none.
    EXPECT_EQ(emulator_for(elf_header(1, 1, 183)), "");
    EXPECT_EQ(emulator_for(elf_header(2, 1, 40)), "");
    EXPECT_EQ(emulator_for(elf_header(2, 2, 183)), "");
    EXPECT_EQ(emulator_for(elf_header(2, 1, 8)), "");
    EXPECT_EQ(emulator_for("#!/system/bin/sh\n echo"), "");
    EXPECT_EQ(emulator_for(elf_header(2, 1, 183).substr(0, 19)), "");
}

}  // namespace
}  // namespace phone
