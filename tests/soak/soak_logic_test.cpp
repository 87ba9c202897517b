// The soak's own judgements, whose faults would pass silently: a result table too wide hides an
// undocumented result, a fault window that holds too long or too short blames the wrong calls, a
// check of the agent's data that is too lenient hides corruption, a watchdog that never fires
// hides hangs.
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "doubles/scripted_agent.h"
#include "soak/documented.h"
#include "soak/ledger.h"
#include "soak/phone_tree.h"
#include "soak/report.h"
#include "soak/watchdog.h"

using namespace wrenlink::soak;

TEST(SoakResults, EachCallHasItsOwnTable) {
    const struct {
        const char *call;
        int64_t value;
        Verdict verdict;
        const char *name;
    } rows[] = {
        {"NFCFileRefRead", 0, Verdict::Ok, "0"},
        {"NFCFileRefRead", ECONNRESET, Verdict::Failed, "ECONNRESET"},
        {"NFCFileRefRead", EMSGSIZE, Verdict::Failed, "EMSGSIZE"},
        {"NFCFileRefRead", AgentBadCrc, Verdict::Undocumented, "AgentBadCrc"},  // open, tell and seek only
        {"NFCFileRefTell", AgentBadCrc, Verdict::Failed, "AgentBadCrc"},
        {"NFCFileRefWrite", EMSGSIZE, Verdict::Undocumented, "EMSGSIZE"},
        {"NFCFileRefOpen", EINTR, Verdict::Undocumented, "EINTR"},  // no handler is installed
        {"NFCFileRefOpen", EISDIR, Verdict::Failed, "EISDIR"},
        {"NDDStartScan", EBUSY, Verdict::Failed, "EBUSY"},
        {"NDDStartScan", AgentShortPayload, Verdict::Undocumented, "AgentShortPayload"},
        {"NDDStartScan.onCode", 22, Verdict::Failed, "22"},
        {"NDDStartScan.onCode", kProgressComplete, Verdict::Ok, "no code, progress complete"},
        {"NDDStartScan.onCode", kNoCode, Verdict::Undocumented, "no code"},
        {"NDDStartScan.onCode", kTwoCodes, Verdict::Undocumented, "two codes"},
        {"NMCListImages", 0xE0000004u, Verdict::Undocumented, "3758096388"},
        {"TestPing", -4, Verdict::Failed, "-4"},
        {"TestPing", -1, Verdict::Undocumented, "-1"},
        {"NetConnectionOpen", 0, Verdict::Failed, "NULL"},
        {"NetConnectionOpen", 1, Verdict::Ok, "handle"},
        {"AdbShellCommand", 1, Verdict::Ok, "1"},
        {"AdbShellCommand", 0, Verdict::Undocumented, "0"},
        {"AdbPushFile", 2, Verdict::Failed, "2"},
        {"AdbPullFileEx", 1, Verdict::Undocumented, "1"},
        {"AdbGetPhoneList", -1, Verdict::Undocumented, "-1"},
        {"AdbRereshDevInfo", 1, Verdict::Failed, "1"},
        {"NoSuchCall", 0, Verdict::Undocumented, "0"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(judge(row.call, row.value), row.verdict) << row.call << " " << row.value;
        EXPECT_EQ(value_name(row.call, row.value), row.name) << row.call;
    }
}

TEST(SoakLedger, AFaultHitsTheCallsOnItsPhoneWhileItHolds) {
    Ledger ledger;
    const auto before = Clock::now();
    const int unplug = ledger.begin_fault(FaultKind::Unplug, 2);
    ledger.record("TestPing", 2, before, -4, false);  // ran into the fault
    ledger.record("TestPing", 3, before, 0, false);   // another phone
    ledger.close_restored_faults({true, true, true, true}, Clock::now());
    ledger.record("TestPing", 2, before, 0, false);  // not restored yet: the window holds
    ledger.restored(unplug);
    ledger.close_restored_faults({true, true, false, true}, Clock::now());
    EXPECT_TRUE(ledger.fault_open_on(2));  // restored, but the phone is not whole yet
    ledger.close_restored_faults({true, true, true, true}, before);  // a look from before the fault
    EXPECT_TRUE(ledger.fault_open_on(2));
    ledger.close_restored_faults({true, true, true, true}, Clock::now());
    EXPECT_FALSE(ledger.fault_open_on(2));
    ledger.record("TestPing", 2, Clock::now() + std::chrono::seconds(1), 0, false);  // after the window
    ledger.begin_fault(FaultKind::ServerKill, kEveryPhone);
    EXPECT_TRUE(ledger.fault_open_on(0));
    ledger.record("AdbShellCommand", 0, Clock::now(), 7, false);

    const auto faults = ledger.faults();
    const FaultTally &u = faults[static_cast<int>(FaultKind::Unplug)];
    EXPECT_EQ(u.injected, 1);
    EXPECT_EQ(u.callsHit, 2);
    EXPECT_EQ(u.results.ok, 1);
    EXPECT_EQ(u.results.failed.at("-4"), 1);
    const FaultTally &s = faults[static_cast<int>(FaultKind::ServerKill)];
    EXPECT_EQ(s.callsHit, 1);
    EXPECT_EQ(s.results.undocumented.at("7"), 1);
    const Totals t = ledger.totals();
    EXPECT_EQ(t.calls, 5);
    EXPECT_EQ(t.faults, 2);
    EXPECT_EQ(t.undocumented, 1);
}

TEST(SoakLedger, DataComparedApartCountWhetherAFaultWasNear) {
    Ledger ledger;
    ledger.checked_apart("AdbPushFile", "0", 1, Clock::now(), false);
    ledger.begin_fault(FaultKind::Stall, 1);
    ledger.checked_apart("AdbPushFile", "0", 1, Clock::now(), false);
    ledger.checked_apart("AdbPushFile", "0", 4, Clock::now(), true);
    const ApartCounts a = ledger.apart().at("AdbPushFile 0");
    EXPECT_EQ(a.intact, 1);
    EXPECT_EQ(a.differs, 2);
    EXPECT_EQ(a.differsWithoutFault, 1);
    EXPECT_EQ(ledger.totals().corrupt, 0);
}

TEST(SoakTree, WhatTheAgentReportsMustBeTheTreeAsItIs) {
    __MediaBean c{0, const_cast<char *>("/DCIM/Camera/c.png"), 3500, nullptr, 0, nullptr, nullptr};
    __MediaBean b{0, const_cast<char *>("/DCIM/b.jpg"), 2500, nullptr, 0, nullptr, &c};
    __MediaBean a{0, const_cast<char *>("/DCIM/a.jpg"), 1500, nullptr, 0, nullptr, &b};
    std::string why;
    EXPECT_TRUE(media_list_matches(MediaKind::Images, &a, 3, why)) << why;
    EXPECT_FALSE(media_list_matches(MediaKind::Images, &a, 2, why));    // more items than counted
    EXPECT_FALSE(media_list_matches(MediaKind::Images, &b, 2, why));    // one missing
    EXPECT_FALSE(media_list_matches(MediaKind::Musics, &a, 3, why));    // another kind's list
    b.value2 = 2501;
    EXPECT_FALSE(media_list_matches(MediaKind::Images, &a, 3, why));

    std::string path;
    uint64_t size = 0;
    EXPECT_TRUE(parse_found_item("1500\t1718006400\timage/jpeg\t/DCIM/a.jpg", path, size));
    EXPECT_EQ(path, "/DCIM/a.jpg");
    EXPECT_EQ(size, 1500u);
    for (const char *bad : {"", "1500", "x\t1\timage/jpeg\t/a", "15\t/DCIM/a.jpg", "1\t2\t3\t"})
        EXPECT_FALSE(parse_found_item(bad, path, size)) << bad;

    std::map<std::string, uint64_t> found = {{"/DCIM/a.jpg", 1500}, {"/DCIM/b.jpg", 2500}, {"/DCIM/Camera/c.png", 3500},
                                             {"/Music/m.mp3", 4500}, {"/Movies/v.mp4", 5500}, {kPullAgentPath, kPullSize},
                                             {"/soak/file-1.bin", 9}};
    EXPECT_TRUE(scan_found_tree(found, why)) << why;
    found["/Music/m.mp3"] = 4499;
    EXPECT_FALSE(scan_found_tree(found, why));
    found.erase("/Music/m.mp3");
    EXPECT_FALSE(scan_found_tree(found, why));
}

TEST(SoakReport, TheLastLineThatScriptsRead) {
    EXPECT_EQ(last_line(Totals{1, 2, 3, 4, 5, 6, 7}),
              "soak: 1 calls, 2 faults, 3 crashes, 4 hangs, 5 corrupt, 6 undocumented, 7 leaked");
}

// The watchdog releases an agent call that waits on a silent agent the header's way, and counts a
// call that outlives its limit as a hang, even one it cannot release.
TEST(SoakWatchdog, ReleasesAgentCallsAndCountsHangs) {
    Ledger ledger;
    Watchdog dog(ledger, Limits{std::chrono::milliseconds(50), std::chrono::seconds(30), std::chrono::milliseconds(0)});
    wrenlink::test::ScriptedAgent silent;
    std::promise<void> released;
    const std::shared_future<void> done = released.get_future().share();
    silent.add(wrenlink::test::Script().hook([done] { done.wait_for(std::chrono::seconds(60)); }));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", silent.port());
    ASSERT_NE(conn, nullptr);
    Watched ping(dog, ledger, "TestPing", 0, Half::Agent, conn);
    EXPECT_EQ(ping.end(TestPing(conn)), Verdict::Failed);  // returns only once the watchdog closed it
    EXPECT_TRUE(ping.cut());
    released.set_value();

    {
        Watched stuck(dog, ledger, "AdbShellCommand", 1, Half::Adb);
        for (int i = 0; i < 1000 && ledger.totals().hangs == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(stuck.end(1), Verdict::Ok);
    }
    EXPECT_EQ(ledger.totals().hangs, 1);
    EXPECT_EQ(ledger.calls().at("TestPing").cut, 1);
}
