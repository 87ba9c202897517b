// Listing phones and reading their properties, against the stand-in adb tool.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "device/device_test_support.h"

using namespace wrenlink::test;

namespace {

const char *const kDaemonStart =
    R"( err "* daemon not running; starting now at tcp:5037\n* daemon started successfully\n")";

const char *const kThreePhones =
    R"(args devices out "List of devices attached\r\nR58M\tdevice\r\nEMU1\tunauthorized\r\nOFF9\toffline\r\n\r\n")";

const char *const kR58MProperties = R"(
when "-s R58M shell getprop ro.build.version.release" out "13\r\n"
when "-s R58M shell getprop ro.product.manufacturer" out "samsung\r\n"
when "-s R58M shell getprop ro.product.model" out "SM-G991B\r\n")";

std::vector<Argv> property_runs(const std::string &serial) {
    return {shell_argv(serial, {"getprop", "ro.build.version.release"}),
            shell_argv(serial, {"getprop", "ro.product.manufacturer"}),
            shell_argv(serial, {"getprop", "ro.product.model"})};
}

std::string field(const char (&f)[32]) { return std::string(f, strnlen(f, sizeof f)); }

bool all_zero(const void *bytes, std::size_t size) {
    const auto *p = static_cast<const unsigned char *>(bytes);
    for (std::size_t i = 0; i < size; ++i) {
        if (p[i] != 0) return false;
    }
    return true;
}

PhoneInfo record_for(const std::string &serial) {
    PhoneInfo phone;
    std::memset(&phone, 0, sizeof phone);
    std::memcpy(phone.serial, serial.data(), std::min(serial.size(), sizeof phone.serial));
    std::strcpy(phone.softVersion, "old");
    std::strcpy(phone.manufacturer, "old");
    std::strcpy(phone.productModel, "old");
    phone.authorized = 7;
    phone.present = 7;
    return phone;
}

TEST(AdbGetDevicesList, OneRecordPerPhoneLine) {
    FakeAdb adb;
    adb.scenario(std::string(kThreePhones) + kDaemonStart);
    char output[2048];
    std::memset(output, 'Q', sizeof output);
    EXPECT_EQ(AdbGetDevicesList(output), 0);
    EXPECT_STREQ(output, "R58M-author;EMU1-unauthor;OFF9-offline;");
    EXPECT_EQ(adb.runs(), (std::vector<Argv>{tool_argv({"devices"})}));
}

TEST(AdbGetDevicesList, NoPhoneOrAFailureWordLeavesTheBufferAlone) {
    struct Case {
        const char *scenario;
        int32_t result;
    };
    const Case cases[] = {
        {R"(args devices out "List of devices attached\n\n")", 0},
        {"", 0},
        {R"(args devices out "List of devices attached\nfail-7\tdevice\n\n")", -1},
        {R"(args devices out "List of devices attached\nR58M\tdevice\n\n" err "adb: error: protocol fault\n")", -1},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(c.scenario);
        char output[2048];
        std::memset(output, 'Q', sizeof output);
        EXPECT_EQ(AdbGetDevicesList(output), c.result) << c.scenario;
        EXPECT_EQ(std::string(output, sizeof output), std::string(2048, 'Q')) << c.scenario;
    }
    EXPECT_EQ(AdbGetDevicesList(nullptr), -1);
}

TEST(AdbGetPhoneList, ReadsThePropertiesOfAuthorisedPhonesOnly) {
    FakeAdb adb;
    adb.scenario(std::string(kThreePhones) + kDaemonStart + kR58MProperties);
    PhoneInfo *phones = nullptr;
    uint32_t count = 99;
    EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
    ASSERT_EQ(count, 2u);
    ASSERT_NE(phones, nullptr);

    EXPECT_EQ(field(phones[0].serial), "R58M");
    EXPECT_EQ(field(phones[0].softVersion), "13");
    EXPECT_EQ(field(phones[0].manufacturer), "samsung");
    EXPECT_EQ(field(phones[0].productModel), "SM-G991B");
    EXPECT_EQ(phones[0].authorized, 1);
    EXPECT_EQ(phones[0].present, 1);
    EXPECT_TRUE(all_zero(phones[0].reserved, sizeof phones[0].reserved));

    EXPECT_EQ(field(phones[1].serial), "EMU1");
    EXPECT_EQ(phones[1].authorized, 0);
    EXPECT_EQ(phones[1].present, 1);
    EXPECT_TRUE(all_zero(&phones[1], offsetof(PhoneInfo, serial)));  // no property was read
    WrenlinkFree(phones);

    std::vector<Argv> expected{tool_argv({"devices"})};
    for (auto &run : property_runs("R58M")) expected.push_back(run);
    EXPECT_EQ(adb.runs(), expected);
}

TEST(AdbGetPhoneList, LongSerialKeepsThirtyOneCharactersButIsAskedForInFull) {
    const std::string serial(40, 's');
    FakeAdb adb;
    adb.scenario("args devices out \"List of devices attached\\n" + serial + "\\tdevice\\n\\n\"\n" +
                 R"(when "getprop ro.product.model" err "error: device not found\n"
when getprop out "value\n")");
    PhoneInfo *phones = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(field(phones[0].serial), serial.substr(0, 31));
    EXPECT_EQ(field(phones[0].softVersion), "value");
    EXPECT_EQ(field(phones[0].productModel), "");  // its read failed: the field stays zero
    WrenlinkFree(phones);
    const auto runs = adb.runs();
    ASSERT_EQ(runs.size(), 4u);
    EXPECT_EQ(runs[3], shell_argv(serial, {"getprop", "ro.product.model"}));
}

TEST(AdbGetPhoneList, EmptyListGivesAnArrayWithNoRecord) {
    FakeAdb adb;
    adb.scenario(R"(args devices out "List of devices attached\n\n")");
    PhoneInfo *phones = nullptr;
    uint32_t count = 99;
    EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
    EXPECT_EQ(count, 0u);
    EXPECT_NE(phones, nullptr);
    WrenlinkFree(phones);

    EXPECT_EQ(AdbGetPhoneList(nullptr, &count), 0);
    EXPECT_EQ(AdbGetPhoneList(&phones, nullptr), 0);
    EXPECT_EQ(adb.runs().size(), 1u);
}

TEST(AdbRereshDevInfo, RefreshesAnAuthorisedPhone) {
    FakeAdb adb;
    adb.scenario(std::string(kThreePhones) + kR58MProperties);
    PhoneInfo phone = record_for("R58M");
    EXPECT_EQ(AdbRereshDevInfo(&phone), 0);
    EXPECT_EQ(phone.present, 1);
    EXPECT_EQ(phone.authorized, 1);
    EXPECT_EQ(field(phone.softVersion), "13");
    EXPECT_EQ(field(phone.productModel), "SM-G991B");
    std::vector<Argv> expected{tool_argv({"devices"})};
    for (auto &run : property_runs("R58M")) expected.push_back(run);
    EXPECT_EQ(adb.runs(), expected);
}

TEST(AdbRereshDevInfo, UnauthorisedOfflineAndMissingPhones) {
    FakeAdb adb;
    adb.scenario(kThreePhones);

    PhoneInfo unauthorised = record_for("EMU1");
    EXPECT_EQ(AdbRereshDevInfo(&unauthorised), 0);
    EXPECT_EQ(unauthorised.present, 1);
    EXPECT_EQ(unauthorised.authorized, 0);
    EXPECT_EQ(field(unauthorised.softVersion), "old");  // no property read

    for (const char *serial : {"OFF9", "R58", "R58M\r"}) {
        PhoneInfo missing = record_for(serial);
        EXPECT_EQ(AdbRereshDevInfo(&missing), 0) << serial;
        EXPECT_EQ(missing.present, 0) << serial;
        EXPECT_EQ(missing.authorized, 7) << serial;
    }
    EXPECT_EQ(adb.runs().size(), 4u);
}

TEST(AdbRereshDevInfo, TextThatIsNoListOrAnEmptyOne) {
    struct Case {
        const char *scenario;
        int32_t result;
    };
    const Case cases[] = {
        {R"(args devices out "List of devices attached\n\n")", 1},
        {"", 1},
        {R"(args devices out "* daemon started successfully\nList of devices attached\nR58M\tdevice\n")", 1},
        // Longer than the bare empty list: walked, and nothing is found.
        {R"(args devices out "List of devices attached\r\n\r\n")", 0},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(c.scenario);
        PhoneInfo phone = record_for("R58M");
        EXPECT_EQ(AdbRereshDevInfo(&phone), c.result) << c.scenario;
        EXPECT_EQ(phone.present, 0) << c.scenario;
    }
    FakeAdb adb;
    adb.scenario(std::string(R"(args devices out "List of devices attached\n\n")") + kDaemonStart);
    PhoneInfo phone = record_for("R58M");
    EXPECT_EQ(AdbRereshDevInfo(&phone), 0);  // the daemon's words on stderr follow the list
    EXPECT_EQ(phone.present, 0);
    EXPECT_EQ(AdbRereshDevInfo(nullptr), 0);
}

TEST(AdbRereshDevInfo, SerialThatFillsTheWholeField) {
    const std::string serial(32, 'f');
    FakeAdb adb;
    adb.scenario("args devices out \"List of devices attached\\n" + serial + "\\tunauthorized\\n" + serial +
                 "x\\tdevice\\n\"");
    PhoneInfo phone = record_for(serial);
    EXPECT_EQ(AdbRereshDevInfo(&phone), 0);
    EXPECT_EQ(phone.present, 1);
    EXPECT_EQ(phone.authorized, 0);  // the longer serial is another phone
}

TEST(PhoneProperties, FirstLineOfTheValue) {
    FakeAdb adb;
    adb.scenario(R"(when "-s P1 shell getprop ro.product.model" out "Pixel 7\r\nsecond line\n"
when "-s P1 shell getprop ro.product.manufacturer" out "\nGoogle\n"
when "-s P1 shell getprop ro.build.version.release" out "14")");
    char model[32], maker[32], version[32];
    std::memset(model, 'z', 32);
    std::memset(maker, 'z', 32);
    std::memset(version, 'z', 32);
    EXPECT_EQ(AdbGetPhoneProductModel("P1", model), 0);
    EXPECT_EQ(AdbGetPhoneManufacture("P1", maker), 0);
    EXPECT_EQ(AdbGetPhoneSoftVersion("P1", version), 0);
    EXPECT_EQ(field(model), "Pixel 7");
    EXPECT_EQ(field(maker), "");
    EXPECT_EQ(field(version), "14");
    EXPECT_TRUE(all_zero(version + 2, 30));  // copied from the zeroed output: all 32 bytes
    const auto runs = adb.runs();
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_EQ(runs[0], shell_argv("P1", {"getprop", "ro.product.model"}));
    EXPECT_EQ(runs[1], shell_argv("P1", {"getprop", "ro.product.manufacturer"}));
    EXPECT_EQ(runs[2], shell_argv("P1", {"getprop", "ro.build.version.release"}));
}

TEST(PhoneProperties, FailureWordsOfEachRead) {
    struct Case {
        const char *output;
        int32_t softVersion, model, manufacturer;
    };
    // The soft version reads 4095 bytes and searches them all; the other two look at the start.
    const std::string late = std::string(3000, 'x') + "daemon not running";
    const Case cases[] = {
        {R"(error: device not found\n)", 1, 1, 1},
        {R"(* daemon not running; starting now\n)", 1, 0, 0},
        {R"(x\nerror: device not found\n)", 1, 0, 0},
        {late.c_str(), 1, 0, 0},
        {"", 0, 0, 0},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario("when getprop out \"" + std::string(c.output) + "\"");
        char f[3][32];
        std::memset(f, 'z', sizeof f);
        EXPECT_EQ(AdbGetPhoneSoftVersion("P1", f[0]), c.softVersion) << c.output;
        EXPECT_EQ(AdbGetPhoneProductModel("P1", f[1]), c.model) << c.output;
        EXPECT_EQ(AdbGetPhoneManufacture("P1", f[2]), c.manufacturer) << c.output;
        // A failed read leaves the field alone.
        EXPECT_EQ(f[0][0] == 'z', c.softVersion == 1) << c.output;
        EXPECT_EQ(f[1][0] == 'z', c.model == 1) << c.output;
    }
}

TEST(PhoneProperties, NullOrOverlongArgumentsRunNothing) {
    FakeAdb adb;
    char f[32];
    EXPECT_EQ(AdbGetPhoneSoftVersion(nullptr, nullptr), -1);
    EXPECT_EQ(AdbGetPhoneProductModel(nullptr, f), -1);
    EXPECT_EQ(AdbGetPhoneManufacture("P1", nullptr), -1);
    std::memset(f, 'z', sizeof f);
    EXPECT_EQ(AdbGetPhoneProductModel(too_long().c_str(), f), 0);  // as an empty text
    EXPECT_TRUE(all_zero(f, sizeof f));
    EXPECT_TRUE(adb.runs().empty());
    EXPECT_EQ(AdbGetPhoneName(), 0);
}

}  // namespace
