// The readers of the adb tool's text, on captured and hand-made outputs.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "Wrenlink/AdbText.h"

using namespace wrenlink;

namespace {

std::vector<std::pair<std::string, bool>> phones_of(const std::vector<PhoneLine> &lines) {
    std::vector<std::pair<std::string, bool>> out;
    for (const auto &l : lines) out.emplace_back(std::string(l.serial), l.authorized);
    return out;
}

using Phones = std::vector<std::pair<std::string, bool>>;

}  // namespace

TEST(DevicesText, ShortListRecordsPerState) {
    struct Case {
        std::string text;
        std::string records;
    };
    const Case cases[] = {
        {"List of devices attached\n\n", ""},
        {"", ""},
        {"List of devices attached\nA1\tdevice\nB2\tunauthorized\nC3\toffline\nD4\trecovery\n\n",
         "A1-author;B2-unauthor;C3-offline;"},
        {"List of devices attached\r\nA1\tdevice\r\nB2\toffline\r\n\r\n", "A1-author;B2-offline;"},
        // A header further down still lists; the daemon's lines are no phone lines.
        {"* daemon started successfully\nList of devices attached\nA1\tdevice\n", "A1-author;"},
        // The state is searched for in the whole line, serial included.
        {"List of devices attached\nmydevice7\toffline\n", "mydevice7-offline;"},
        {"List of devices attached\nunauthorizedX\tdevice\n", "unauthorizedX-unauthor;"},
        // Without a tab the whole line is the serial, without its CR.
        {"List of devices attached\nXYZ device\r\n", "XYZ device-author;"},
        {"List of devices attached\n\tlead\tdevice\n", "lead-author;"},
    };
    for (const auto &c : cases) {
        EXPECT_FALSE(devices_text_reports_failure(c.text)) << c.text;
        EXPECT_EQ(devices_list_records(c.text, 2047), c.records) << c.text;
    }
}

TEST(DevicesText, ErrorOrFailAnywhereCondemnsTheList) {
    for (const char *text : {"List of devices attached\nfailover1\tdevice\n",
                             "List of devices attached\nA1\tdevice\n\n* daemon failed to start\n",
                             "adb: error: cannot connect to daemon\n", "xerrorx"}) {
        EXPECT_TRUE(devices_text_reports_failure(text)) << text;
    }
    EXPECT_FALSE(devices_text_reports_failure("List of devices attached\nERROR\tdevice\nFail\tdevice\n"));
}

TEST(DevicesText, ShortListStopsAtWholeRecordsWithinCapacity) {
    std::string text = "List of devices attached\n";
    for (int i = 0; i < 300; ++i) text += "device\n";  // 14-byte records from 7-byte lines
    const std::string records = devices_list_records(text, 2047);
    ASSERT_EQ(records.size(), 2047u / 14 * 14);
    for (std::size_t at = 0; at < records.size(); at += 14) EXPECT_EQ(records.substr(at, 14), "device-author;");
}

TEST(DevicesText, FullListWalk) {
    struct Case {
        std::string text;
        Phones phones;
    };
    const Case cases[] = {
        {"List of devices attached\n\n", {}},
        {"", {}},
        {"List of devices attached\nA1\tdevice\nB2\tunauthorized\nC3\toffline\nD4\thost\n\n",
         {{"A1", true}, {"B2", false}}},
        // The first line goes whatever it says.
        {"A1\tdevice\nB2\tdevice\n", {{"B2", true}}},
        {"* daemon started successfully\nList of devices attached\nA1\tdevice\n", {{"A1", true}}},
        // A CR-only line is skipped; a phone line that begins with a CR ends the list.
        {"List of devices attached\r\n\r\nA1\tdevice\r\n", {{"A1", true}}},
        {"List of devices attached\nA1\tdevice\n\rB2\tdevice\nC3\tdevice\n", {{"A1", true}}},
        // "device" in a serial makes any state a phone line, and authorised.
        {"List of devices attached\nmydevice7\toffline\n", {{"mydevice7", true}}},
        {"List of devices attached\nXYZ device\r\n", {{"XYZ device", true}}},
        {"List of devices attached\n\tlead\tdevice\n", {{"", true}}},
    };
    for (const auto &c : cases) EXPECT_EQ(phones_of(listed_phones(c.text)), c.phones) << c.text;
}

TEST(DevicesText, RefreshWalk) {
    EXPECT_FALSE(is_nonempty_devices_list(""));
    EXPECT_FALSE(is_nonempty_devices_list("List of devices attached\n\n"));
    EXPECT_FALSE(is_nonempty_devices_list("* daemon started\nList of devices attached\nA1\tdevice\n"));
    EXPECT_TRUE(is_nonempty_devices_list("List of devices attached\r\n\r\n"));
    EXPECT_TRUE(is_nonempty_devices_list("List of devices attached\n\n* daemon started successfully\n"));

    // Unlike the full list, a CR line of any kind ends the walk, and a header is a candidate.
    EXPECT_EQ(phones_of(refresh_candidates("List of devices attached\r\n\r\nA1\tdevice\r\n")), Phones{});
    EXPECT_EQ(phones_of(refresh_candidates("List of devices attached\nA1\tdevice\nB2\tunauthorized\nC3\toffline\n")),
              (Phones{{"A1", true}, {"B2", false}}));
    EXPECT_EQ(phones_of(refresh_candidates("List of devices attached\nList of devices attached\n")),
              (Phones{{"List of devices attached", true}}));
}

TEST(PropertyText, FieldReadsAsTheFirstLine) {
    struct Case {
        std::string output;
        std::string field;
    };
    const Case cases[] = {
        {"8.1.0\n", "8.1.0"},
        {"Pixel 7\r\n", "Pixel 7"},
        {"\nsecond", ""},
        {"a\rb\nc", "a"},
        {"", ""},
        {"error: closed\n", "error: closed"},
    };
    for (const auto &c : cases) {
        char output[2048] = {};
        std::memcpy(output, c.output.data(), c.output.size());
        char field[32];
        std::memset(field, 'z', sizeof field);
        copy_property_field(field, output);
        EXPECT_EQ(std::string(field, strnlen(field, 32)), c.field) << c.output;
    }
}

TEST(PropertyText, LongValueFillsTheFieldAndThePassStaysInIt) {
    char output[2048] = {};
    std::memset(output, 'v', 40);
    output[40] = '\n';
    // A heap field of exactly 32 bytes: the sanitizer sees any step past it.
    auto field = std::make_unique<char[]>(32);
    copy_property_field(field.get(), output);
    EXPECT_EQ(std::string(field.get(), 32), std::string(32, 'v'));
}

TEST(PropertyText, SoftVersionFailsOnEitherWordAnywhere) {
    EXPECT_TRUE(soft_version_read_failed("* daemon not running; starting now at tcp:5037\n"));
    EXPECT_TRUE(soft_version_read_failed("x error: device not found"));
    EXPECT_FALSE(soft_version_read_failed("error: device offline"));
    EXPECT_TRUE(says_device_not_found("error: device not found\n"));
    EXPECT_FALSE(says_device_not_found(" error: device not found"));
    EXPECT_FALSE(says_device_not_found("error: device not foun"));
}

TEST(FailureText, VerdictsOfEachFamily) {
    struct Case {
        const char *text;
        int32_t removal, copy, push, package;
    };
    const Case cases[] = {
        {"", 0, 0, 0, 1},
        {"1 file pushed. 3.2 MB/s", 0, 0, 0, 1},
        {"error: device not found", 0, 0, 0, 0},
        {"error: device not found\nPermission denied", 0, 0, 0, 0},
        // Not at the start it is no device answer, but it holds "not found", which push skips.
        {"* daemon started\nerror: device not found", 1, 1, 0, 1},
        {"adb: not found", 1, 1, 0, 1},
        {"rm: /sdcard/x: No such file or directory", 1, 1, 1, 1},
        {"No such file or directory", 1, 1, 1, 1},
        {"cd: /x/y: Not a directory", 1, 1, 1, 1},
        {"Failure [DELETE_FAILED_INTERNAL_ERROR] package does not exist", 1, 1, 1, 1},
        {"opendir failed, Permission denied", 1, 2, 2, 2},
        {"mkdir: '/system/x': Permission denied\n", 1, 2, 2, 2},
        {"x: No such file or directory\ny: Permission denied\n", 1, 2, 2, 2},
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

TEST(PackageText, OnePackageLineMatchesTheExpression) {
    const std::regex expression("^[^:]*:(\\S+)\\s*$");
    struct Case {
        std::string text;
        bool one;
    };
    const Case cases[] = {
        {"package:com.example\r\n", true},
        {"package:com.example", true},
        {"package:com.example \t\r\n\n", true},
        {"package:com.example\npackage:com.example.pro\n", false},
        {"package:a b", false},
        {"", false},
        {"package:", false},
        {"package: com.example", false},
        {"no colon at all\n", false},
        {":x", true},
        {"a:b:c", true},
        // [^:]* crosses line ends: a colon-free line before the package line still matches.
        {"warning\npackage:com.example\n", true},
        {"warning: x\npackage:com.example\n", false},
        {"package:\x80\xff", true},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(lists_exactly_one_package(c.text), c.one) << c.text;
        EXPECT_EQ(std::regex_match(c.text, expression), c.one) << c.text;
    }
}

TEST(PackageText, ValueBehindTheFirstKey) {
    const std::string dump = "  versionCode=31 minSdk=21\r\n  versionName=1.2.3\r\n  versionName=9\n";
    EXPECT_EQ(package_prop_value(dump, "versionName="), "1.2.3");
    EXPECT_EQ(package_prop_value(dump, "versionCode="), "31 minSdk=21");
    EXPECT_EQ(package_prop_value(dump, "Name="), "1.2.3");  // inside a longer word counts
    EXPECT_EQ(package_prop_value("key=", "key="), "");
    EXPECT_EQ(package_prop_value("k=\nvalue", "k="), "");
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
        {"ActivityRecord{abc ua.pkg/.Main}", std::nullopt},
        {"ActivityRecord{abc }", ""},
        {"ActivityRecord{abc ", ""},
        {"ActivityRecord{abc u0 pkg/.Main", "pkg/.Main"},
        {"ActivityRecord{abc u0", std::nullopt},
        {"ActivityRecord{abc}", std::nullopt},
        {"mFocusedActivity: null", std::nullopt},
        {"", std::nullopt},
        {"ActivityRecord{a u0 first/.A t1}\nActivityRecord{b u0 second/.B t2}", "first/.A"},
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
        {"1.5G", 1610612736ull},
        {"12.5G", 13421772800ull},
        {"1.1G", 1181116006ull},
        {"2G", 2147483648ull},
        {"300M", 314572800ull},
        {"0.5M", 524288ull},
        {"100K", 102400ull},
        {"1.7K", 1740ull},
        {"2048", 2097152ull},
        {"1.5", 1536ull},
        {"", 0},
        {"1.5T", 1536ull},  // another letter, or a small one, counts as no letter
        {"1.5g", 1536ull},
        {"2MG", 2147483648ull},  // G wins wherever it stands
        {"3GM", 3221225472ull},
        {"7M\r\n", 7340032ull},
        {"\r\n4.5M", 4718592ull},  // leading white space is skipped as atof does
        {"Avail", 0},
        {"8589934592.0G", 9223372036854775808ull},  // 2^63: the top bit survives
        {"17179869184G", 0},                              // 2^64 wraps in the whole-number reading
        {"1.0e30G", 0},                                   // no count holds it
    };
    for (const auto &c : cases) EXPECT_EQ(ConvertSpaceStrToValue(c.text), c.bytes) << c.text;
}

TEST(StorageText, DecimalPointDoesNotFollowTheHostLocale) {
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no de_DE locale here";
    const uint64_t bytes = ConvertSpaceStrToValue("1.5G");
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(bytes, 1610612736ull);
}

TEST(StorageText, FourthWordOfTheWholeDfText) {
    struct Case {
        std::string text;
        std::optional<uint64_t> bytes;
    };
    const Case cases[] = {
        {"/dev/block/dm-5  114816564  22147388  92538104  20% /data\n", 92538104ull * 1024},
        {"/data   12.5G   3.1G   9.4G   4096\r\n", 10093173145ull},
        {"a b c 7M\r\n", 7340032ull},  // exactly four words, the CR LF stuck to the last
        {"a b 7M\r\n", std::nullopt},
        {"", std::nullopt},
        {"    ", std::nullopt},
        // Two lines: words run across the line end, so "2G\n/sys" is one word.
        {"/data 1G 2G\n/sys 5G 6G 7G\n", 5368709120ull},
        {"/data 1G 2G 3G\n/sys 5G 6G 7G\n", 3221225472ull},
    };
    for (const auto &c : cases) EXPECT_EQ(free_space_from_df(c.text), c.bytes) << c.text;
}
