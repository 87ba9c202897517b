// Listing phones and reading their properties, against the stand-in adb tool.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "doubles/fake_adb_fixture.h"

using namespace wrenlink::test;

namespace {

const std::string kLongSerial(40, 's');

// Three phone lines (CR LF, as some hosts print them), a 40-character serial among them, and the
// server's start-up words on stderr.
const std::string kPhones = "args devices out \"List of devices attached\\r\\nR58M\\tdevice\\r\\nEMU1\\tunauthorized\\r\\n" +
                            kLongSerial + "\\toffline\\r\\n\\r\\n\" err \"* daemon started successfully\\n\"" + R"(
when "-s R58M shell getprop ro.build.version.release" out "13\r\n"
when "-s R58M shell getprop ro.product.manufacturer" out "samsung\r\n"
when "-s R58M shell getprop ro.product.model" out "SM-G991B\r\n")";

std::vector<Argv> list_and_properties(const std::string &serial) {
    return {tool_argv({"devices"}), shell_argv(serial, {"getprop", "ro.build.version.release"}),
            shell_argv(serial, {"getprop", "ro.product.manufacturer"}),
            shell_argv(serial, {"getprop", "ro.product.model"})};
}

std::string field(const char (&f)[32]) { return std::string(f, strnlen(f, sizeof f)); }

PhoneInfo record_for(const std::string &serial) {
    PhoneInfo phone{};
    std::memcpy(phone.serial, serial.data(), std::min(serial.size(), sizeof phone.serial));
    std::strcpy(phone.softVersion, "old");
    phone.authorized = 7;
    phone.present = 7;
    return phone;
}

TEST(AdbGetDevicesList, RecordsOrAnUntouchedBuffer) {
    struct Case {
        std::string scenario;
        int32_t result;
        std::string written;  // empty: the buffer is left alone
    };
    const Case cases[] = {
        {kPhones, 0, "R58M-author;EMU1-unauthor;" + kLongSerial + "-offline;"},
        {R"(args devices out "List of devices attached\n\n")", 0, ""},
        {R"(args devices out "List of devices attached\nR58M\tdevice\n\n" err "adb: error: protocol fault\n")", -1, ""},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario(c.scenario);
        char output[2048];
        std::memset(output, 'Q', sizeof output);
        EXPECT_EQ(AdbGetDevicesList(output), c.result);
        const std::string expected = c.written.empty() ? std::string(2048, 'Q') : c.written + '\0';
        EXPECT_EQ(std::string(output, expected.size()), expected);
        EXPECT_EQ(adb.runs(), (std::vector<Argv>{tool_argv({"devices"})}));
    }
}

TEST(AdbGetPhoneList, ReadsThePropertiesOfAuthorisedPhonesOnly) {
    FakeAdb adb;
    adb.scenario(kPhones);
    PhoneInfo *phones = nullptr;
    uint32_t count = 99;
    EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(field(phones[0].serial), "R58M");
    EXPECT_EQ(field(phones[0].productModel), "SM-G991B");
    EXPECT_EQ(phones[0].authorized, 1);
    EXPECT_EQ(phones[0].present, 1);
    EXPECT_EQ(field(phones[1].serial), "EMU1");
    EXPECT_EQ(phones[1].authorized, 0);
    EXPECT_EQ(phones[1].present, 1);
    WrenlinkFree(phones);
    EXPECT_EQ(adb.runs(), list_and_properties("R58M"));

    // A long serial keeps 31 characters and a terminator, but the phone is asked with all 40.
    FakeAdb longer;
    longer.scenario("args devices out \"List of devices attached\\n" + kLongSerial + "\\tdevice\\n\"");
    EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(field(phones[0].serial), kLongSerial.substr(0, 31));
    WrenlinkFree(phones);
    EXPECT_EQ(longer.runs(), list_and_properties(kLongSerial));

    EXPECT_EQ(AdbGetPhoneList(nullptr, &count), 0);
    EXPECT_EQ(longer.runs().size(), 4u);
}

TEST(AdbRereshDevInfo, FoundUnauthorisedMissingOrNoList) {
    FakeAdb adb;
    adb.scenario(kPhones);
    PhoneInfo phone = record_for("R58M");
    EXPECT_EQ(AdbRereshDevInfo(&phone), 0);
    EXPECT_EQ(phone.present, 1);
    EXPECT_EQ(phone.authorized, 1);
    EXPECT_EQ(field(phone.softVersion), "13");
    EXPECT_EQ(field(phone.productModel), "SM-G991B");
    EXPECT_EQ(adb.runs(), list_and_properties("R58M"));

    phone = record_for("EMU1");
    EXPECT_EQ(AdbRereshDevInfo(&phone), 0);
    EXPECT_EQ(phone.present, 1);
    EXPECT_EQ(phone.authorized, 0);
    EXPECT_EQ(field(phone.softVersion), "old");  // nothing read

    // The offline phone (a serial no field holds whole) and a prefix of a listed serial.
    for (const std::string &serial : {kLongSerial.substr(0, 32), std::string("R58")}) {
        phone = record_for(serial);
        EXPECT_EQ(AdbRereshDevInfo(&phone), 0) << serial;
        EXPECT_EQ(phone.present, 0) << serial;
        EXPECT_EQ(phone.authorized, 7) << serial;
    }
    EXPECT_EQ(adb.runs().size(), 7u);

    adb.scenario(R"(args devices out "List of devices attached\n\n")");  // the bare empty list
    phone = record_for("R58M");
    EXPECT_EQ(AdbRereshDevInfo(&phone), 1);
    EXPECT_EQ(phone.present, 0);
}

TEST(PhoneProperties, FirstLineOrTheFailureOfEachRead) {
    struct Case {
        std::string output;
        int32_t softVersion, model, manufacturer;
        const char *value;
    };
    // The soft version reads 4095 bytes and searches them all; the other two look at the start.
    const Case cases[] = {
        {R"(Pixel 7\r\nsecond line\n)", 0, 0, 0, "Pixel 7"},
        {R"(error: device not found\n)", 1, 1, 1, ""},
        {std::string(3000, 'x') + "daemon not running", 1, 0, 0, "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"},
    };
    for (const auto &c : cases) {
        FakeAdb adb;
        adb.scenario("when getprop out \"" + c.output + "\"");
        char f[3][32];
        std::memset(f, 'z', sizeof f);
        EXPECT_EQ(AdbGetPhoneSoftVersion("P1", f[0]), c.softVersion) << c.output;
        EXPECT_EQ(AdbGetPhoneProductModel("P1", f[1]), c.model) << c.output;
        EXPECT_EQ(AdbGetPhoneManufacture("P1", f[2]), c.manufacturer) << c.output;
        EXPECT_EQ(c.softVersion == 1 ? std::string(32, 'z') : c.value, field(f[0])) << c.output;
        EXPECT_EQ(c.model == 1 ? std::string(32, 'z') : c.value, field(f[1])) << c.output;
        EXPECT_EQ(adb.runs(), (std::vector<Argv>{shell_argv("P1", {"getprop", "ro.build.version.release"}),
                                                 shell_argv("P1", {"getprop", "ro.product.model"}),
                                                 shell_argv("P1", {"getprop", "ro.product.manufacturer"})}));
    }
}

}  // namespace
