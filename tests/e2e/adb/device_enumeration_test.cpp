// Listing phones with the real adb tool and no phone attached, on a private server port and home
// folder: once with the tool's server already running, once with it having to start first (its
// start-up lines then follow the list, as they come on stderr).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "doubles/temp_tree.h"
#include "e2e/adb/loopback_server.h"
#include "doubles/tool_runs.h"

namespace {

using wrenlink::test::adb_text;

bool server_listens(uint16_t port) {
    const int fd = wrenlink::test::connect_server(port);
    if (fd >= 0) ::close(fd);
    return fd >= 0;
}

class RealAdbWithoutPhones : public ::testing::Test {
protected:
    void SetUp() override {
        struct stat info {};
        if (::stat(AndGetAdbFullpath(), &info) != 0) GTEST_SKIP() << "no adb tool at " << AndGetAdbFullpath();
        home_ = std::make_unique<wrenlink::test::TempTree>();
        port_ = wrenlink::test::free_loopback_port();
        ::setenv("HOME", home_->root().c_str(), 1);
        ::setenv("ANDROID_ADB_SERVER_PORT", std::to_string(port_).c_str(), 1);
    }
    void TearDown() override {
        if (home_) stop_server();
    }

    void start_server() const {
        adb_text(" start-server");
        ASSERT_TRUE(server_listens(port_));
    }
    // Waits (bounded, against a hang) until the port is free again, so that the next run starts
    // a server of its own rather than racing the old one for the port.
    void stop_server() const {
        adb_text(" kill-server");
        for (int i = 0; i < 200 && server_listens(port_); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(25));
        ASSERT_FALSE(server_listens(port_));
    }

    // What a run of the enumeration sees: the list, and whether the server had to start for it.
    void check_empty_enumeration(bool serverRunning) const {
        auto prepare = [&] { serverRunning ? start_server() : stop_server(); };

        prepare();
        char output[2048];
        std::memset(output, 'Q', sizeof output);
        EXPECT_EQ(AdbGetDevicesList(output), 0);
        EXPECT_EQ(std::string(output, sizeof output), std::string(2048, 'Q'));

        prepare();
        PhoneInfo *phones = nullptr;
        uint32_t count = 99;
        EXPECT_EQ(AdbGetPhoneList(&phones, &count), 0);
        EXPECT_EQ(count, 0u);
        EXPECT_NE(phones, nullptr);
        WrenlinkFree(phones);

        prepare();
        PhoneInfo phone{};
        std::strcpy(phone.serial, "wrenlink-no-such-phone");
        phone.present = 1;
        // The bare empty list is "no list"; with the server's start-up words behind it the list is
        // walked and the phone is not in it.
        EXPECT_EQ(AdbRereshDevInfo(&phone), serverRunning ? 1 : 0);
        EXPECT_EQ(phone.present, 0);
        EXPECT_TRUE(server_listens(port_));
    }

    std::unique_ptr<wrenlink::test::TempTree> home_;
    uint16_t port_ = 0;
};

TEST_F(RealAdbWithoutPhones, ServerAlreadyRunning) { check_empty_enumeration(true); }

TEST_F(RealAdbWithoutPhones, ServerHasToStart) { check_empty_enumeration(false); }

}  // namespace
