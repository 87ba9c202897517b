// The readers of the adb tool's text, on captured and hand-made outputs.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "adb/text/tool_text.h"

using namespace wrenlink::adb;

namespace {

using Phones = std::vector<std::pair<std::string, bool>>;

Phones phones_of(const std::vector<PhoneLine> &lines) {
    Phones out;
    for (const auto &l : lines) out.emplace_back(std::string(l.serial), l.authorized);
    return out;
}

}  // namespace

// The short list, the full list and the refresh each walk the same text in their own way.
TEST(DevicesText, TheThreeWalksOfOneList) {
    struct Case {
        std::string text;
        std::string records;
        Phones listed;
        Phones candidates;
    };
    const Phones a1{{"A1", true}};
    const Case cases[] = {
        {"List of devices attached\n\n", "", {}, {}},
        {"List of devices attached\r\nA1\tdevice\r\nB2\tunauthorized\r\nC3\toffline\r\nD4\thost\r\n\r\n",
         "A1-author;B2-unauthor;C3-offline;", {{"A1", true}, {"B2", false}}, {{"A1", true}, {"B2", false}}},
        // A header further down: skipped by the lists, a candidate (with no tab) for the refresh.
        {"* daemon started successfully\nList of devices attached\nA1\tdevice\n", "A1-author;", a1,
         {{"List of devices attached", true}, {"A1", true}}},
        // A CR line ends the refresh's walk; the full list ends only at a phone line with a CR.
        {"List of devices attached\n\r\nA1\tdevice\n", "A1-author;", a1, {}},
        {"List of devices attached\nA1\tdevice\n\rB2\tdevice\n", "A1-author;\rB2-author;", a1, a1},
        // Without a tab the whole line is the serial, without its CR.
        {"List of devices attached\nXYZ device\r\n", "XYZ device-author;", {{"XYZ device", true}},
         {{"XYZ device", true}}},
        {"List of devices attached\n\tlead\tdevice\n", "lead-author;", {{"", true}}, {{"", true}}},
    };
    for (const auto &c : cases) {
        EXPECT_FALSE(devices_text_reports_failure(c.text)) << c.text;
        EXPECT_EQ(devices_list_records(c.text, 2047), c.records) << c.text;
        EXPECT_EQ(phones_of(listed_phones(c.text)), c.listed) << c.text;
        EXPECT_EQ(phones_of(refresh_candidates(c.text)), c.candidates) << c.text;
    }
}

TEST(DevicesText, FailureWordsEmptyListsAndCapacity) {
    EXPECT_TRUE(devices_text_reports_failure("List of devices attached\n\nadb: error: protocol fault\n"));
    EXPECT_FALSE(devices_text_reports_failure("List of devices attached\nERROR\tdevice\nFail\tdevice\n"));

    EXPECT_FALSE(is_nonempty_devices_list("List of devices attached\n\n"));
    EXPECT_FALSE(is_nonempty_devices_list("* daemon started\nList of devices attached\nA1\tdevice\n"));
    EXPECT_TRUE(is_nonempty_devices_list("List of devices attached\r\n\r\n"));

    // 14-byte records from 7-byte lines: a record that fits exactly is kept, whole records only.
    const std::string three = "List of devices attached\ndevice\ndevice\ndevice\n";
    EXPECT_EQ(devices_list_records(three, 28), "device-author;device-author;");
    EXPECT_EQ(devices_list_records(three, 41), "device-author;device-author;");
}

TEST(FailureText, VerdictsOfEachFamily) {
    struct Case {
        const char *text;
        int32_t removal, copy, push, package;
    };
    const Case cases[] = {
        {"", 0, 0, 0, 1},
        {"error: device not found", 0, 0, 0, 0},
        // Not at the start it is no device answer, but it holds "not found", which push skips.
        {"* daemon started\nerror: device not found", 1, 1, 0, 1},
        {"adb: not found", 1, 1, 0, 1},
        {"rm: /sdcard/x: No such file or directory", 1, 1, 1, 1},
        {"opendir failed, Permission denied", 1, 2, 2, 2},
        {"not found ... Permission denied", 1, 2, 2, 2},
        // Another case is no hit.
        {"permission denied; no such file or directory; NOT FOUND", 0, 0, 0, 1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(classify_failure_text(c.text, kRemovalVerdicts), c.removal) << c.text;
        EXPECT_EQ(classify_failure_text(c.text, kCopyVerdicts), c.copy) << c.text;
        EXPECT_EQ(classify_failure_text(c.text, kPushVerdicts), c.push) << c.text;
        EXPECT_EQ(classify_failure_text(c.text, kPackageVerdicts), c.package) << c.text;
    }
}

TEST(PackageText, ValueBehindTheFirstKey) {
    const std::string dump = "  versionCode=31 minSdk=21\r\n  versionName=1.2.3\r\n  versionName=9\n";
    EXPECT_EQ(package_prop_value(dump, "versionName="), "1.2.3");
    EXPECT_EQ(package_prop_value(dump, "versionCode="), "31 minSdk=21");
    EXPECT_EQ(package_prop_value("k=v", "missing"), std::nullopt);
}

TEST(ActivityText, NameBehindTheRecord) {
    struct Case {
        std::string text;
        std::optional<std::string> name;
    };
    const Case cases[] = {
        {"  mFocusedActivity: ActivityRecord{abc u0 pkg/.Main t5}\n", "pkg/.Main"},
        {"ActivityRecord{abc pkg/.Main}", "pkg/.Main"},
        {"ActivityRecord{abc ua.pkg/.Main t5}", "t5"},  // the u rule looks at one character once
        {"ActivityRecord{abc }", ""},
        {"ActivityRecord{abc u0", std::nullopt},
        {"ActivityRecord{abc}", std::nullopt},
        {"mFocusedActivity: null", std::nullopt},
    };
    for (const auto &c : cases) {
        const auto got = top_activity_name(c.text);
        EXPECT_EQ(got ? std::optional<std::string>(*got) : std::nullopt, c.name) << c.text;
    }
}

TEST(StorageText, ConvertSpaceStrToValueWorkedValues) {
    struct Case {
        const char *text;
        uint64_t bytes;
    };
    const Case cases[] = {
        {"2G", 2147483648ull},
        {"300M", 314572800ull},
        {"2048", 2097152ull},
        {"2MG", 2147483648ull},  // G wins wherever it stands
        {"7M\r\n", 7340032ull},
        {"Avail", 0},
        {"17179869184G", 0},                              // 2^64 wraps in the whole-number reading
    };
    for (const auto &c : cases) EXPECT_EQ(ConvertSpaceStrToValue(c.text), c.bytes) << c.text;
}

TEST(StorageText, FourthWordOfTheWholeDfText) {
    struct Case {
        std::string text;
        std::optional<uint64_t> bytes;
    };
    const Case cases[] = {
        {"/dev/block/dm-5  114816564  22147388  92538104  20% /data\n", 92538104ull * 1024},
        {"a b c 7M\r\n", 7340032ull},  // exactly four words, the CR LF stuck to the last
        {"a b 7M\r\n", std::nullopt},
        // Two lines: words run across the line end, so "2G\n/sys" is one word.
        {"/data 1G 2G\n/sys 5G 6G 7G\n", 5368709120ull},
    };
    for (const auto &c : cases) EXPECT_EQ(free_space_from_df(c.text), c.bytes) << c.text;
}
