// What a phone's shell does with a path as a command: a program pushed to the phone's storage and
// made executable runs there, with the storage as its "/", on this machine's processor or through
// qemu-user for another one.
//
// The host's /bin/sh plays the phone's shell and would look such a path up on the host. So every
// command line the phone runs is routed first: a command word that holds a "/" gets the launcher
// (this program as `wrenlink-exec`) put in front of it, and the launcher decides when the command
// runs what the path is: a program in the sandbox, one of the phone's own commands, or anything
// else, which runs as the host's shell would run it. Deciding then, not when the line is read,
// lets `chmod 755 X && X` work.
#pragma once

#include <string>
#include <string_view>

namespace phone {

class Sandbox;

inline constexpr const char *kLauncherName = "wrenlink-exec";

// The launcher's host path in a phone's sandbox (it is linked into /system/bin with the commands).
std::string launcher_path(const Sandbox &sandbox);

// `line` with the launcher, quoted for the shell, in front of every command word that holds a "/":
// the first word of the line and of each command after ";", "&", "|", "&&", "||", "(" or a line
// end, past variable assignments and words such as "exec", "nohup" or "then". Quotes, escapes,
// $(...) and `...` are kept whole; a redirection's file is no command; what follows "#" is a
// comment. Everything else is copied as it is.
std::string route_program_paths(std::string_view line, std::string_view launcher);

// The qemu-user program that runs an ELF file whose first bytes are `header` (at least 20): for
// 64-bit AArch64 and x86-64 and 32-bit ARM and x86, little-endian. Empty for anything else.
std::string emulator_for(std::string_view header);

}  // namespace phone
