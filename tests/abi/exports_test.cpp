// The library exports exactly the names its public header declares: every one of them, and
// nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>

namespace {

// The functions the public header declares for export: each line that opens with the export mark
// names one, just before its parameter list.
std::set<std::string> declared_functions() {
    std::ifstream header(WRENLINK_PUBLIC_HEADER);
    std::set<std::string> names;
    for (std::string line; std::getline(header, line);) {
        const auto open = line.find('(');
        if (line.rfind("WRENLINK_API ", 0) != 0 || open == std::string::npos) continue;
        const auto start = line.find_last_of(" *", open - 1) + 1;
        names.insert(line.substr(start, open - start));
    }
    return names;
}

// "ComLog::Log(char const*, ...)" -> "ComLog::Log"; "ComLog::appName[abi:cxx11]" -> "ComLog::appName".
std::string bare_name(std::string name) {
    for (const char *cut : {"(", "[", "@"}) {
        const auto at = name.find(cut);
        if (at != std::string::npos) name.erase(at);
    }
    return name;
}

// The defined names of the library's dynamic symbol table, demangled.
std::set<std::string> exported_names() {
    const std::string command = std::string("nm -D -C --defined-only '") + WRENLINK_LIBRARY_PATH + "'";
    std::set<std::string> names;
    FILE *nm = popen(command.c_str(), "r");
    if (nm == nullptr) return names;
    char line[1024];
    while (std::fgets(line, sizeof line, nm) != nullptr) {
        std::string s(line);
        if (!s.empty() && s.back() == '\n') s.pop_back();
        // "<address> <type> <name>"; version nodes are type A.
        if (s.size() < 20 || s[17] == 'A') continue;
        names.insert(bare_name(s.substr(19)));
    }
    pclose(nm);
    return names;
}

}  // namespace

// The log class is exported whole, with C++ linkage: its members are public by their class.
TEST(Exports, ExactlyThePublicNames) {
    const auto names = exported_names(), declared = declared_functions();
    ASSERT_FALSE(names.empty()) << "could not read the dynamic symbol table of " << WRENLINK_LIBRARY_PATH;
    ASSERT_GT(declared.size(), 60u) << "could not read the declarations of " << WRENLINK_PUBLIC_HEADER;
    for (const auto &name : names) {
        EXPECT_TRUE(declared.count(name) || name.rfind("ComLog::", 0) == 0) << "exported but not public: " << name;
    }
    for (const auto &name : declared) EXPECT_TRUE(names.count(name)) << "public but not exported: " << name;
}
