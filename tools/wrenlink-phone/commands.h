// The phone's own commands: what the library's command lines ask of a phone's shell, answered from
// the profile and the sandbox. Each runs as a process of its own, this program under the command's
// name, with the phone's identity in its environment (see phone.h).
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "profile.h"
#include "sandbox.h"

namespace phone {

// The names under which this program acts as one of the phone's commands.
const std::vector<std::string> &command_names();

// Runs the named command; the result is its exit status.
int run_command(std::string_view name, int argc, char **argv);

// What every command knows of the phone it runs on.
struct CommandContext {
    Profile profile;
    Sandbox sandbox;
    bool root = false;
    std::vector<std::string> args;   // without the command's name
    std::string name;

    // "NAME: WHAT: reason" on standard error; returns 1 for the exit status.
    int fail(const std::string &what, int error) const;
    int fail(const std::string &message) const;
};

int command_getprop(CommandContext &c);
int command_id(CommandContext &c);
int command_su(CommandContext &c);
int command_pm(CommandContext &c);
int command_am(CommandContext &c);
int command_dumpsys(CommandContext &c);
int command_df(CommandContext &c);

int command_ls(CommandContext &c);
int command_mv(CommandContext &c);
int command_rm(CommandContext &c);
int command_rmdir(CommandContext &c);
int command_mkdir(CommandContext &c);
int command_chmod(CommandContext &c);
int command_dd(CommandContext &c);
int command_cat(CommandContext &c);
// The launcher of program paths (program_paths.h).
int command_exec(CommandContext &c);

// Shared by the commands that move files around.
bool remove_tree(const std::string &host_path);
bool copy_file(const std::string &from_host, const std::string &to_host, int &error);

}  // namespace phone
