// What one simulated phone is: its profile, its sandbox, and how its shell is set up.
#pragma once

#include <string>
#include <vector>

#include "profile.h"
#include "sandbox.h"

namespace phone {

// The variables that carry a phone's identity into the commands its shell runs.
inline constexpr const char *kEnvSandbox = "WRENLINK_PHONE_SANDBOX";
inline constexpr const char *kEnvProfile = "WRENLINK_PHONE_PROFILE";
inline constexpr const char *kEnvUid = "WRENLINK_PHONE_UID";

inline constexpr int kShellUid = 2000;

struct PhoneContext {
    std::string name;           // "127.0.0.1:PORT", the serial the server gives us; for logs
    std::string profile_path;   // absolute
    Profile profile;
    Sandbox sandbox;
    std::string executable;     // this program: the phone's commands are links to it

    // "device::ro.product.name=...;ro.product.model=...;ro.product.device=...;" as the server
    // expects it in our connect message. No features: the server then keeps to the plain shell,
    // sync and install paths that every phone has.
    std::string banner() const;

    // Whether the phone's debug daemon runs as root (phone.adb_root=yes, as on a development build
    // after `adb root`): its shell and its file transfers then have root's rights from the start.
    bool adbd_is_root() const { return profile.setting("adb_root", "no") == "yes"; }

    // "NAME=value" entries for the phone's shell, root or not.
    std::vector<std::string> shell_environment(bool as_root) const;
};

// Builds the phone's directory tree in the sandbox, links the phone's commands into /system/bin and
// seeds the package list from the profile when there is none yet. False with a reason on failure.
bool prepare_sandbox(const PhoneContext &phone, std::string &error);

}  // namespace phone
