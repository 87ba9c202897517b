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
    const std::string log = files_.read("log");
    std::vector<FakeAdbRecord> records;
    std::size_t at = 0;
    while (at < log.size()) {
        const std::size_t end = log.find('\n', at);
        if (end == std::string::npos) break;
        std::istringstream head(log.substr(at, end - at));
        at = end + 1;
        FakeAdbRecord record;
        head >> record.kind >> record.pid;
        std::string word;
        if (record.kind != "argv") {
            while (head >> word) record.words.push_back(word);
        } else {
            std::size_t argc = 0;
            head >> argc;
            for (std::size_t i = 0; i < argc && at < log.size(); ++i) {
                const std::size_t nul = log.find('\0', at);
                record.words.push_back(log.substr(at, nul - at));
                at = nul + 1;
            }
            ++at;  // the line end behind the arguments
        }
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
