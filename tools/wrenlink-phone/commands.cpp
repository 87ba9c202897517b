#include "commands.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "phone.h"
#include "program_paths.h"

namespace phone {

int CommandContext::fail(const std::string &what, int error) const {
    std::fprintf(stderr, "%s: %s: %s\n", name.c_str(), what.c_str(), std::strerror(error));
    return 1;
}

int CommandContext::fail(const std::string &message) const {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), message.c_str());
    return 1;
}

namespace {

using Command = int (*)(CommandContext &);

struct Entry {
    std::string_view name;
    Command run;
};

constexpr Entry kCommands[] = {
    {"getprop", command_getprop}, {"id", command_id},       {"su", command_su},       {"pm", command_pm},
    {"am", command_am},           {"dumpsys", command_dumpsys}, {"df", command_df},   {"ls", command_ls},
    {"mv", command_mv},           {"rm", command_rm},       {"rmdir", command_rmdir}, {"mkdir", command_mkdir},
    {"chmod", command_chmod},     {"dd", command_dd},       {"cat", command_cat},
    {kLauncherName, command_exec},
};

std::optional<CommandContext> context_from_environment(std::string_view name) {
    const char *sandbox = std::getenv(kEnvSandbox);
    const char *profile_path = std::getenv(kEnvProfile);
    if (!sandbox || !profile_path) return std::nullopt;
    std::string error;
    auto profile = Profile::load(profile_path, error);
    if (!profile) return std::nullopt;
    const char *uid = std::getenv(kEnvUid);
    CommandContext c{*profile, Sandbox(sandbox, *profile), uid && std::strcmp(uid, "0") == 0, {}, std::string(name)};
    return c;
}

}  // namespace

const std::vector<std::string> &command_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> out;
        for (const auto &entry : kCommands) out.emplace_back(entry.name);
        return out;
    }();
    return names;
}

int run_command(std::string_view name, int argc, char **argv) {
    auto context = context_from_environment(name);
    if (!context) {
        std::fprintf(stderr, "%.*s: this command runs only inside a wrenlink phone's shell\n", static_cast<int>(name.size()),
                     name.data());
        return 127;
    }
    for (int i = 1; i < argc; ++i) context->args.emplace_back(argv[i]);
    for (const auto &entry : kCommands)
        if (entry.name == name) return entry.run(*context);
    return 127;
}

}  // namespace phone
