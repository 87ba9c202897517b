// The fixed pauses of the adb half keep their length, at the runner where they are taken: a run
// that doesn't wait gives the tool a second before the terminate signal, and the root shell gives
// the phone's shell half a second after "su" and half a second after the line. A shorter pause
// passes every other test and breaks slow phones. Each call is timed from before it starts to its
// return, so a slow machine only adds: these are lower bounds, never upper ones.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "adb/runner/command_line.h"
#include "adb/runner/root_shell.h"
#include "adb/runner/tool_runner.h"
#include "doubles/fake_adb_fixture.h"

using namespace std::chrono_literals;

TEST(FixedPauses, HoldTheirWholeLength) {
    char output[wrenlink::adb::kOutputSize];
    struct Row {
        const char *what;
        const char *scenario;
        std::function<void()> run;
        std::chrono::milliseconds atLeast;
    };
    const Row rows[] = {
        {"a run that doesn't wait: a second before the terminate signal", "always sleep 30000",
         [] { (void)wrenlink::adb::run_tool(" logcat", false, 0); }, 1000ms},
        {"a root shell that asks for su: half a second after it, half after the line", "",
         [&] { wrenlink::adb::run_root_shell("id", output); }, 1000ms},
        {"a root shell whose prompt is root already: half a second after the line", "prompt \"# \"",
         [&] { wrenlink::adb::run_root_shell("id", output); }, 500ms},
    };
    for (const Row &row : rows) {
        const wrenlink::test::FakeAdb adb;
        adb.scenario(row.scenario);
        const auto start = std::chrono::steady_clock::now();
        row.run();
        const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        EXPECT_GE(took.count(), row.atLeast.count()) << row.what;
    }
}
