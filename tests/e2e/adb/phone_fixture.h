// A private adb server and simulated phones with profiles of the test's own, for the tests that
// drive Debian's adb. Skips when adb is not installed.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "harness.h"

namespace wrenlink::test {

// A phone with su, a user package, a home activity and a storage card.
inline constexpr const char *kAlphaProfile = R"(# test phone A
ro.product.name=alphaprod
ro.product.model=Alpha Phone
ro.product.device=alphadev
ro.product.manufacturer=Alphacorp
ro.build.version.release=9
phone.home=com.test.launcher/.Home
phone.package=android system
phone.package=com.test.launcher system
phone.package=com.test.notes user 12 1.2.3
phone.storage=/ /dev/root 1000 900
phone.storage=/sdcard /dev/fuse 8000000 3000000
)";

// An older phone without su.
inline constexpr const char *kBetaProfile = R"(ro.product.name=betaprod
ro.product.model=Beta
ro.product.device=betadev
ro.product.manufacturer=Betacorp
ro.build.version.release=7.1.2
phone.su=no
)";

// A development phone whose debug daemon runs as root.
inline constexpr const char *kGammaProfile = R"(ro.product.name=gammaprod
ro.product.model=Gamma Dev
ro.product.device=gammadev
phone.adb_root=yes
)";

class PhoneAdbTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!system_adb_available()) GTEST_SKIP() << kSystemAdb << " is not installed";
        server_ = std::make_unique<PrivateAdbServer>();
        ASSERT_TRUE(server_->ok()) << "the private adb server did not start";
    }

    // One wrenlink-phone process with a phone per profile, each connected to the server.
    void start_phones(const std::vector<std::string> &profiles) {
        std::vector<PhoneProcess::Phone> specs;
        for (std::size_t i = 0; i < profiles.size(); ++i) {
            const std::string profile = "profile" + std::to_string(i) + ".prop";
            dir_.write(profile, profiles[i]);
            specs.push_back({at(profile), at(sandbox(i))});
        }
        phones_ = std::make_unique<PhoneProcess>(specs);
        ASSERT_TRUE(phones_->ok()) << "wrenlink-phone did not come up";
        for (std::size_t i = 0; i < profiles.size(); ++i) ASSERT_TRUE(server_->connect(serial(i))) << serial(i);
    }

    // The scratch directory's path of a name in it; the sandbox of a phone, relative to it.
    std::string at(const std::string &relative) const { return dir_.host(relative).string(); }
    static std::string sandbox(std::size_t i) { return "phone" + std::to_string(i); }
    const std::string &serial(std::size_t i) const { return phones_->serial(i); }

    RunResult adb(std::size_t phone, std::vector<std::string> args, std::string_view input = {}) const {
        args.insert(args.begin(), {"-s", serial(phone)});
        return server_->run(args, input);
    }
    std::string shell(std::size_t phone, const std::string &command) const { return adb(phone, {"shell", command}).output; }

    TempTree dir_;
    std::unique_ptr<PrivateAdbServer> server_;
    std::unique_ptr<PhoneProcess> phones_;
};

// Whether `text` holds `part`, for readable expectations.
inline bool holds(const std::string &text, std::string_view part) { return text.find(part) != std::string::npos; }

}  // namespace wrenlink::test
