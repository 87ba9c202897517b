// The phone's system commands: properties, identity, root, packages, activities and storage.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "commands.h"
#include "phone.h"
#include "phone_state.h"
#include "program_paths.h"

namespace phone {

namespace {

std::string join(const std::vector<std::string> &words, std::size_t from) {
    std::string out;
    for (std::size_t i = from; i < words.size(); ++i) {
        if (!out.empty()) out += ' ';
        out += words[i];
    }
    return out;
}

std::string package_of(std::string_view component) { return std::string(component.substr(0, component.find('/'))); }

// "pkg/.Main" as the phone spells it out in full: "pkg/pkg.Main".
std::string full_component(std::string_view component) {
    const auto slash = component.find('/');
    if (slash == std::string_view::npos) return std::string(component);
    const std::string_view pkg = component.substr(0, slash);
    const std::string_view cls = component.substr(slash + 1);
    return std::string(pkg) + "/" + (cls.starts_with('.') ? std::string(pkg) + std::string(cls) : std::string(cls));
}

// A stable stand-in for the identity hashes that the phone prints in its records.
std::string record_hash(std::string_view text) {
    uint32_t h = 2166136261u;
    for (const char c : text) h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
    char out[16];
    std::snprintf(out, sizeof out, "%07x", h & 0xFFFFFFFu);
    return out;
}

std::string local_time(int64_t seconds) {
    const auto t = static_cast<time_t>(seconds);
    tm parts{};
    ::localtime_r(&t, &parts);
    char out[32];
    std::strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &parts);
    return out;
}

const Package *find_package(const std::vector<Package> &packages, std::string_view name) {
    const auto it = std::find_if(packages.begin(), packages.end(), [&](const Package &p) { return p.name == name; });
    return it == packages.end() ? nullptr : &*it;
}

bool host_exists(const CommandContext &c, const std::string &phone_path) {
    struct stat st {};
    return ::stat(c.sandbox.host_path(phone_path).c_str(), &st) == 0;
}

// ---- pm ---------------------------------------------------------------------------------------

int pm_list(CommandContext &c) {
    if (c.args.size() < 2 || c.args[1] != "packages") return c.fail("Error: unknown list type");
    bool only_user = false, only_system = false, with_path = false;
    std::string filter;
    for (std::size_t i = 2; i < c.args.size(); ++i) {
        const std::string &a = c.args[i];
        if (a == "-3") only_user = true;
        else if (a == "-s") only_system = true;
        else if (a == "-f") with_path = true;
        else if (!a.starts_with('-')) filter = a;
    }
    auto packages = load_packages(c.sandbox);
    std::sort(packages.begin(), packages.end(), [](const Package &a, const Package &b) { return a.name < b.name; });
    for (const auto &p : packages) {
        if ((only_user && p.system) || (only_system && !p.system)) continue;
        if (!filter.empty() && p.name.find(filter) == std::string::npos) continue;
        if (with_path) std::printf("package:%s=%s\n", p.apk.c_str(), p.name.c_str());
        else std::printf("package:%s\n", p.name.c_str());
    }
    return 0;
}

int pm_path(CommandContext &c) {
    if (c.args.size() < 2) return c.fail("Error: no package specified");
    const auto packages = load_packages(c.sandbox);
    const Package *p = find_package(packages, c.args.back());
    if (!p) return 1;
    std::printf("package:%s\n", p->apk.c_str());
    return 0;
}

// The package's name is the file's name without ".apk": this phone does not read manifests.
std::string package_name_of_file(std::string_view phone_path) {
    std::string_view base = phone_path.substr(phone_path.rfind('/') + 1);
    if (base.ends_with(".apk")) base.remove_suffix(4);
    return std::string(base);
}

bool looks_like_zip(const std::string &host_path) {
    char magic[4] = {};
    FILE *f = std::fopen(host_path.c_str(), "rb");
    if (!f) return false;
    const std::size_t n = std::fread(magic, 1, sizeof magic, f);
    std::fclose(f);
    return n == 4 && std::memcmp(magic, "PK\x03\x04", 4) == 0;
}

int pm_install(CommandContext &c) {
    bool replace = false;
    std::string file;
    for (std::size_t i = 1; i < c.args.size(); ++i) {
        if (c.args[i] == "-r") replace = true;
        else if (!c.args[i].starts_with('-')) file = c.args[i];
    }
    if (file.empty()) {
        std::printf("Error: APK content must be streamed\n");
        return 1;
    }
    const auto where = c.sandbox.phone_path_of(file);
    const std::string phone_path = where.value_or("");
    const std::string host = where ? c.sandbox.host_path(phone_path) : std::string();  // "" opens nothing
    if (::access(host.c_str(), R_OK) != 0) {
        std::printf("Error: Unable to open file: %s\nConsider using a file under /data/local/tmp/\n", file.c_str());
        return 1;
    }
    if (!looks_like_zip(host)) {
        std::printf("Failure [INSTALL_PARSE_FAILED_NOT_APK: Failed to parse %s]\n", phone_path.c_str());
        return 1;
    }
    const std::string name = package_name_of_file(phone_path);
    auto packages = load_packages(c.sandbox);
    auto existing = std::find_if(packages.begin(), packages.end(), [&](const Package &p) { return p.name == name; });
    if (existing != packages.end() && !replace) {
        std::printf("Failure [INSTALL_FAILED_ALREADY_EXISTS: Attempt to re-install %s without first uninstalling.]\n",
                    name.c_str());
        return 1;
    }
    Package p;
    p.name = name;
    p.apk = user_apk_path(name);
    p.install_time = static_cast<int64_t>(::time(nullptr));
    p.uid = 10000;
    for (const auto &other : packages) p.uid = std::max(p.uid, other.uid + 1);
    const std::string target = c.sandbox.host_path(p.apk);
    ::mkdir(target.substr(0, target.rfind('/')).c_str(), 0771);
    int error = 0;
    if (!copy_file(host, target, error)) {
        std::printf("Failure [INSTALL_FAILED_INSUFFICIENT_STORAGE: %s]\n", std::strerror(error));
        return 1;
    }
    if (existing != packages.end()) {
        p.uid = existing->uid;
        *existing = p;
    } else {
        packages.push_back(p);
    }
    if (!save_packages(c.sandbox, packages)) {
        std::printf("Failure [INSTALL_FAILED_INTERNAL_ERROR]\n");
        return 1;
    }
    std::printf("Success\n");
    return 0;
}

int pm_uninstall(CommandContext &c) {
    if (c.args.size() < 2) return c.fail("Error: package name not specified");
    const std::string &name = c.args.back();
    auto packages = load_packages(c.sandbox);
    const auto it = std::find_if(packages.begin(), packages.end(), [&](const Package &p) { return p.name == name; });
    if (it == packages.end() || it->system) {
        std::printf("Failure [DELETE_FAILED_INTERNAL_ERROR]\n");
        return 1;
    }
    const std::string apk = c.sandbox.host_path(it->apk);
    remove_tree(apk.substr(0, apk.rfind('/')));
    packages.erase(it);
    if (!save_packages(c.sandbox, packages)) {
        std::printf("Failure [DELETE_FAILED_INTERNAL_ERROR]\n");
        return 1;
    }
    std::printf("Success\n");
    return 0;
}

// ---- dumpsys ----------------------------------------------------------------------------------

int dumpsys_activities(CommandContext &c) {
    const Focus focus = load_focus(c.sandbox, c.profile);
    const std::string record = "ActivityRecord{" + record_hash(focus.component) + " u0 " + focus.component + " t" +
                               std::to_string(focus.task) + "}";
    const std::string pkg = package_of(focus.component);
    std::printf("ACTIVITY MANAGER ACTIVITIES (dumpsys activity activities)\n"
                "Display #0 (activities from top to bottom):\n"
                "  Stack #1:\n"
                "  mFullscreen=true\n"
                "    Task id #%u\n"
                "      * Hist #0: %s\n"
                "          packageName=%s processName=%s\n"
                "          launchedFromUid=2000 launchedFromPackage=null userId=0\n"
                "\n"
                "    Running activities (most recent first):\n"
                "      TaskRecord{%s #%u A=%s U=0 StackId=1 sz=1}\n"
                "        Run #0: %s\n"
                "\n"
                "    mResumedActivity: %s\n"
                "\n"
                "  mFocusedActivity: %s\n"
                "  mFocusedStack=ActivityStack{%s stackId=1, 1 tasks} mLastFocusedStack=ActivityStack{%s stackId=1, 1 tasks}\n"
                "  mSleepTimeout=false\n"
                "  mCurTaskIdForUser={0=%u}\n",
                focus.task, record.c_str(), pkg.c_str(), pkg.c_str(), record_hash(pkg).c_str(), focus.task, pkg.c_str(),
                record.c_str(), record.c_str(), record.c_str(), record_hash("stack").c_str(), record_hash("stack").c_str(),
                focus.task);
    return 0;
}

void print_package(const Package &p) {
    const std::string dir = p.apk.substr(0, p.apk.rfind('/'));
    const std::string hash = record_hash(p.name);
    const std::string when = local_time(p.install_time);
    const char *flags = p.system ? "[ SYSTEM HAS_CODE ALLOW_CLEAR_USER_DATA ]" : "[ HAS_CODE ALLOW_CLEAR_USER_DATA ALLOW_BACKUP ]";
    std::printf("Packages:\n"
                "  Package [%s] (%s):\n"
                "    userId=%u\n"
                "    pkg=Package{%s %s}\n"
                "    codePath=%s\n"
                "    resourcePath=%s\n"
                "    legacyNativeLibraryDir=%s/lib\n"
                "    primaryCpuAbi=null\n"
                "    secondaryCpuAbi=null\n"
                "    versionCode=%s minSdk=21 targetSdk=28\n"
                "    versionName=%s\n"
                "    splits=[base]\n"
                "    apkSigningVersion=2\n"
                "    applicationInfo=ApplicationInfo{%s %s}\n"
                "    flags=%s\n"
                "    dataDir=/data/user/0/%s\n"
                "    supportsScreens=[small, medium, large, xlarge, resizeable, anyDensity]\n"
                "    timeStamp=%s\n"
                "    firstInstallTime=%s\n"
                "    lastUpdateTime=%s\n"
                "    installerPackageName=null\n"
                "    signatures=PackageSignatures{%s version:2, signatures:[%s], past signatures:[]}\n"
                "    installPermissionsFixed=true\n"
                "    pkgFlags=%s\n"
                "    User 0: ceDataInode=0 installed=true hidden=false suspended=false stopped=false notLaunched=false "
                "enabled=0 instant=false virtual=false\n",
                p.name.c_str(), hash.c_str(), p.uid, record_hash(p.name + "pkg").c_str(), p.name.c_str(), dir.c_str(), dir.c_str(),
                dir.c_str(), p.version_code.c_str(), p.version_name.c_str(), record_hash(p.name + "pkg").c_str(), p.name.c_str(),
                flags, p.name.c_str(), when.c_str(), when.c_str(), when.c_str(), record_hash(p.name + "sig").c_str(),
                record_hash(p.name + "cert").c_str(), flags);
}

int dumpsys_package(CommandContext &c) {
    const auto packages = load_packages(c.sandbox);
    const Package *p = c.args.size() > 1 ? find_package(packages, c.args[1]) : nullptr;
    std::printf("Activity Resolver Table:\n");
    if (p) {
        std::printf("  Non-Data Actions:\n"
                    "      android.intent.action.MAIN:\n"
                    "        %s %s/.MainActivity filter %s\n"
                    "          Action: \"android.intent.action.MAIN\"\n"
                    "          Category: \"android.intent.category.LAUNCHER\"\n\n",
                    record_hash(p->name + "activity").c_str(), p->name.c_str(), record_hash(p->name + "filter").c_str());
        std::printf("Key Set Manager:\n  [%s]\n      Signing KeySets: 1\n\n", p->name.c_str());
        print_package(*p);
    } else {
        std::printf("\nDexopt state:\n  Unable to find package: %s\n", c.args.size() > 1 ? c.args[1].c_str() : "");
    }
    return 0;
}

// ---- df ---------------------------------------------------------------------------------------

struct Mount {
    std::string point, filesystem;
    uint64_t size_k = 0, used_k = 0;
};

std::vector<Mount> mounts_of(const Profile &profile) {
    std::vector<Mount> mounts;
    for (const auto &entry : profile.settings("storage")) {
        const auto w = split_words(entry);
        if (w.size() < 4) continue;
        const auto point = resolve_phone_path(w[0]);
        if (!point) continue;
        mounts.push_back({*point, w[1], std::strtoull(w[2].c_str(), nullptr, 10),
                          std::strtoull(w[3].c_str(), nullptr, 10)});
    }
    if (mounts.empty()) {
        mounts.push_back({"/", "/dev/root", 2539312, 2512452});
        mounts.push_back({"/data", "/dev/block/dm-2", 25412468, 8264912});
        mounts.push_back({"/sdcard", "/dev/fuse", 25412468, 8264912});
    }
    return mounts;
}

void print_mount(const Mount &m) {
    const uint64_t available = m.size_k > m.used_k ? m.size_k - m.used_k : 0;
    const unsigned percent = m.size_k == 0 ? 0 : static_cast<unsigned>((m.used_k * 100 + m.size_k - 1) / m.size_k);
    std::printf("%-15s %10" PRIu64 " %8" PRIu64 " %9" PRIu64 " %3u%% %s\n", m.filesystem.c_str(), m.size_k, m.used_k,
                available, percent, m.point.c_str());
}

}  // namespace

int command_getprop(CommandContext &c) {
    if (c.args.empty()) {
        for (const auto &[key, value] : c.profile.properties()) std::printf("[%s]: [%s]\n", key.c_str(), value.c_str());
        return 0;
    }
    std::printf("%s\n", c.profile.property(c.args[0], c.args.size() > 1 ? c.args[1] : "").c_str());
    return 0;
}

int command_id(CommandContext &c) {
    if (!c.args.empty() && c.args[0] == "-u") {
        std::printf("%d\n", c.root ? 0 : kShellUid);
        return 0;
    }
    if (c.root)
        std::printf("uid=0(root) gid=0(root) groups=0(root) context=u:r:su:s0\n");
    else
        std::printf("uid=2000(shell) gid=2000(shell) groups=2000(shell),1004(input),1007(log),1011(adb),1015(sdcard_rw),"
                    "1028(sdcard_r),3001(net_bt_admin),3002(net_bt),3003(inet),3006(net_bw_stats),3009(readproc),"
                    "3011(uhid) context=u:r:shell:s0\n");
    return 0;
}

// "su" becomes a root shell (a prompt of "# " on a terminal); "su [0|root] -c CMD" and
// "su [0|root] CMD..." run one command as root. A profile with phone.su=no has no su at all.
int command_su(CommandContext &c) {
    if (c.profile.setting("su", "yes") == "no") {
        std::fprintf(stderr, "/system/bin/sh: su: not found\n");
        return 127;
    }
    std::size_t i = 0;
    if (i < c.args.size() && (c.args[i] == "0" || c.args[i] == "root" || c.args[i] == "-")) ++i;
    std::string command;
    if (i < c.args.size()) command = c.args[i] == "-c" ? join(c.args, i + 1) : join(c.args, i);
    command = route_program_paths(command, launcher_path(c.sandbox));
    ::setenv(kEnvUid, "0", 1);
    ::setenv("PS1", "# ", 1);
    std::fflush(stdout);
    if (!command.empty()) {
        ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
    } else if (::isatty(0)) {
        ::execl("/bin/sh", "sh", "-i", static_cast<char *>(nullptr));
    } else {
        ::execl("/bin/sh", "sh", static_cast<char *>(nullptr));
    }
    return c.fail("/bin/sh", errno);
}

int command_pm(CommandContext &c) {
    const std::string verb = c.args.empty() ? "" : c.args[0];
    if (verb == "list") return pm_list(c);
    if (verb == "path") return pm_path(c);
    if (verb == "install") return pm_install(c);
    if (verb == "uninstall") return pm_uninstall(c);
    std::fprintf(stderr, "usage: pm list packages [-3] [-s] [-f] [FILTER]\n"
                         "       pm path PACKAGE\n"
                         "       pm install [-r] PATH\n"
                         "       pm uninstall PACKAGE\n");
    return 1;
}

int command_am(CommandContext &c) {
    const std::string verb = c.args.empty() ? "" : c.args[0];
    if (verb == "start") {
        std::string component;
        for (std::size_t i = 1; i + 1 < c.args.size(); ++i)
            if (c.args[i] == "-n") component = c.args[i + 1];
        if (component.find('/') == std::string::npos) {
            std::fprintf(stderr, "Error: Bad component name: %s\n", component.c_str());
            return 1;
        }
        std::printf("Starting: Intent { cmp=%s }\n", component.c_str());
        if (!find_package(load_packages(c.sandbox), package_of(component))) {
            std::printf("Error type 3\nError: Activity class {%s} does not exist.\n", full_component(component).c_str());
            return 0;
        }
        Focus focus = load_focus(c.sandbox, c.profile);
        if (focus.component == component) {
            std::printf("Warning: Activity not started, its current task has been brought to the front\n");
            return 0;
        }
        save_focus(c.sandbox, {component, focus.task + 1});
        return 0;
    }
    if (verb == "force-stop") {
        if (c.args.size() < 2) return c.fail("Error: no package specified");
        Focus focus = load_focus(c.sandbox, c.profile);
        if (package_of(focus.component) == c.args.back()) save_focus(c.sandbox, {home_component(c.profile), focus.task + 1});
        return 0;
    }
    std::fprintf(stderr, "usage: am start -n COMPONENT\n       am force-stop PACKAGE\n");
    return 1;
}

int command_dumpsys(CommandContext &c) {
    if (c.args.empty()) {
        std::printf("Currently running services:\n  activity\n  package\n");
        return 0;
    }
    if (c.args[0] == "activity" && (c.args.size() < 2 || c.args[1] == "activities" || c.args[1] == "a"))
        return dumpsys_activities(c);
    if (c.args[0] == "package") return dumpsys_package(c);
    std::printf("Can't find service: %s\n", c.args[0].c_str());
    return 0;
}

int command_df(CommandContext &c) {
    const auto mounts = mounts_of(c.profile);
    std::printf("Filesystem       1K-blocks     Used Available Use%% Mounted on\n");
    int status = 0;
    if (c.args.empty()) {
        for (const auto &m : mounts) print_mount(m);
        return 0;
    }
    for (const auto &arg : c.args) {
        const std::string path = c.sandbox.phone_path_of(arg).value_or("");
        if (path.empty() || !host_exists(c, path)) {
            status = c.fail(arg, ENOENT);
            continue;
        }
        const Mount *best = nullptr;
        for (const auto &m : mounts)
            if (path_within(path, m.point) && (!best || m.point.size() > best->point.size())) best = &m;
        if (best) print_mount(*best);
    }
    return status;
}

}  // namespace phone
