#include "doubles/fake_adb_fixture.h"

#include <stdlib.h>

#include <sstream>

#include "Wrenlink/Wrenlink.h"

namespace wrenlink::test {

namespace {

constexpr const char *kScenario = "WRENLINK_FAKE_ADB_SCENARIO";
constexpr const char *kLog = "WRENLINK_FAKE_ADB_LOG";
constexpr const char *kStdin = "WRENLINK_FAKE_ADB_STDIN";

}  // namespace

FakeAdb::FakeAdb() {
    scenario("");
    ::setenv(kScenario, files_.host("scenario").c_str(), 1);
    ::setenv(kLog, files_.host("log").c_str(), 1);
    ::setenv(kStdin, files_.host("stdin").c_str(), 1);
}

FakeAdb::~FakeAdb() {
    ::unsetenv(kScenario);
    ::unsetenv(kLog);
    ::unsetenv(kStdin);
}

void FakeAdb::scenario(const std::string &text) const { files_.write("scenario", text + "\n"); }

std::vector<FakeAdbRecord> FakeAdb::records() const {
    std::vector<FakeAdbRecord> records;
    std::istringstream log(files_.read("log"));
    for (std::string line; std::getline(log, line);) {
        std::istringstream fields(line);
        std::string head, word;
        std::getline(fields, head, '\x1f');
        FakeAdbRecord record{head.substr(0, head.find(' ')), std::atol(head.c_str() + head.find(' ') + 1), {}};
        while (std::getline(fields, word, '\x1f')) record.words.push_back(word);
        records.push_back(std::move(record));
    }
    return records;
}

std::vector<Argv> FakeAdb::runs() const {
    std::vector<Argv> runs;
    for (auto &record : records()) {
        if (record.kind == "argv") runs.push_back(std::move(record.words));
    }
    return runs;
}

std::string FakeAdb::shell_input() const { return files_.read("stdin"); }

std::string FakeAdb::tool() { return AndGetAdbFullpath(); }

std::string FakeAdb::built() { return WRENLINK_FAKE_ADB_PATH; }

}  // namespace wrenlink::test
