// The phone's file commands, in the manner of its toolbox: every path is a phone path, kept inside
// the sandbox, and the shell user may change only the writable places.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/unique_fd.h"
#include "base/io.h"
#include "commands.h"

namespace phone {

namespace {

// Splits "-rf" style options from the operands. Letters outside `known` make `unknown` the first
// of them.
struct Options {
    std::string letters;
    std::vector<std::string> operands;
    char unknown = 0;
    bool has(char letter) const { return letters.find(letter) != std::string::npos; }
};

Options parse_options(const std::vector<std::string> &args, std::string_view known) {
    Options o;
    bool operands_only = false;
    for (const auto &a : args) {
        if (!operands_only && a == "--") {
            operands_only = true;
        } else if (!operands_only && a.size() > 1 && a[0] == '-') {
            for (const char letter : std::string_view(a).substr(1)) {
                if (known.find(letter) == std::string_view::npos && o.unknown == 0) o.unknown = letter;
                o.letters += letter;
            }
        } else {
            o.operands.push_back(a);
        }
    }
    return o;
}

int unknown_option(const CommandContext &c, char letter) {
    std::fprintf(stderr, "%s: Unknown option '%c' (see \"%s --help\")\n", c.name.c_str(), letter, c.name.c_str());
    return 1;
}

// The host path of an operand that the command may read (or change); errno-style 0 or EACCES.
int check_access(const CommandContext &c, const std::string &phone_path, bool for_writing) {
    const bool allowed = for_writing ? c.sandbox.may_write(phone_path, c.root) : c.sandbox.may_read(phone_path, c.root);
    return allowed ? 0 : EACCES;
}

std::string mode_string(mode_t mode) {
    std::string s = S_ISDIR(mode) ? "d" : S_ISLNK(mode) ? "l" : S_ISCHR(mode) ? "c" : S_ISBLK(mode) ? "b" : S_ISFIFO(mode) ? "p" : "-";
    const char *rwx = "rwxrwxrwx";
    for (int i = 0; i < 9; ++i) s += (mode & (0400 >> i)) ? rwx[i] : '-';
    return s;
}

void print_long(const CommandContext &c, const std::string &phone_path, const std::string &host, const std::string &shown,
                const struct stat &st) {
    char when[32];
    tm parts{};
    const time_t t = st.st_mtime;
    ::localtime_r(&t, &parts);
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M", &parts);
    const bool shell_owned = c.sandbox.may_write(phone_path, false);
    const char *owner = shell_owned ? "shell" : "root";
    std::printf("%s %2ju %-6s %-6s %8jd %s %s", mode_string(st.st_mode).c_str(), static_cast<uintmax_t>(st.st_nlink), owner,
                owner, static_cast<intmax_t>(st.st_size), when, shown.c_str());
    if (S_ISLNK(st.st_mode)) {
        char target[1024];
        const ssize_t n = ::readlink(host.c_str(), target, sizeof target - 1);
        if (n >= 0) std::printf(" -> %.*s", static_cast<int>(n), target);
    }
    std::printf("\n");
}

std::vector<std::string> directory_names(const std::string &host, bool all) {
    std::vector<std::string> names;
    if (DIR *dir = ::opendir(host.c_str())) {
        while (const dirent *e = ::readdir(dir)) {
            const std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            if (!all && name.starts_with('.')) continue;
            names.push_back(name);
        }
        ::closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool make_one_directory(const std::string &host, mode_t mode, bool parents, int &error) {
    if (::mkdir(host.c_str(), mode) == 0) return true;
    error = errno;
    if (parents && error == EEXIST) return true;
    if (!parents || error != ENOENT) return false;
    const auto slash = host.rfind('/');
    if (slash == std::string::npos || slash == 0) return false;
    if (!make_one_directory(host.substr(0, slash), mode, true, error)) return false;
    if (::mkdir(host.c_str(), mode) == 0 || errno == EEXIST) return true;
    error = errno;
    return false;
}

bool parse_octal_mode(const std::string &text, mode_t &mode) {
    if (text.empty() || text.find_first_not_of("01234567") != std::string::npos) return false;
    mode = static_cast<mode_t>(std::strtoul(text.c_str(), nullptr, 8) & 07777);
    return true;
}

bool write_all(int fd, const char *data, std::size_t size) { return wrenlink::io::write_all(fd, data, size); }

std::string human_size(double bytes) {
    const char *units[] = {"", "K", "M", "G"};
    int unit = 0;
    while (bytes >= 1024 && unit < 3) {
        bytes /= 1024;
        ++unit;
    }
    char out[32];
    std::snprintf(out, sizeof out, unit == 0 ? "%.0f%s" : "%.1f %s", bytes, units[unit]);
    return out;
}

}  // namespace

bool remove_tree(const std::string &host_path) {
    struct stat st {};
    if (::lstat(host_path.c_str(), &st) != 0) return false;
    if (S_ISDIR(st.st_mode)) {
        for (const auto &name : directory_names(host_path, true)) remove_tree(host_path + "/" + name);
        return ::rmdir(host_path.c_str()) == 0;
    }
    return ::unlink(host_path.c_str()) == 0;
}

bool copy_file(const std::string &from_host, const std::string &to_host, int &error) {
    wrenlink::UniqueFd in(::open(from_host.c_str(), O_RDONLY | O_CLOEXEC));
    if (!in) {
        error = errno;
        return false;
    }
    wrenlink::UniqueFd out(::open(to_host.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!out) {
        error = errno;
        return false;
    }
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(in.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 || (n > 0 && !write_all(out.get(), buffer, static_cast<std::size_t>(n)))) {
            error = errno;
            return false;
        }
        if (n == 0) return true;
    }
}

int command_ls(CommandContext &c) {
    const Options o = parse_options(c.args, "laAd1hRst");
    const bool long_form = o.has('l'), all = o.has('a') || o.has('A'), directory_itself = o.has('d');
    std::vector<std::string> operands = o.operands.empty() ? std::vector<std::string>{"."} : o.operands;
    int status = 0;
    bool first = true;
    for (const auto &arg : operands) {
        const auto where = c.sandbox.phone_path_of(arg);
        if (!where) {
            status = c.fail(arg, EACCES);
            continue;
        }
        const std::string &path = *where;
        const std::string host = c.sandbox.host_path(path);
        struct stat st {};
        if (const int denied = check_access(c, path, false)) {
            status = c.fail(arg, denied);
            continue;
        }
        if (::lstat(host.c_str(), &st) != 0) {
            status = c.fail(arg, errno);
            continue;
        }
        if (!S_ISDIR(st.st_mode) || directory_itself) {
            if (long_form) print_long(c, path, host, arg, st);
            else std::printf("%s\n", arg.c_str());
            continue;
        }
        if (operands.size() > 1) std::printf("%s%s:\n", first ? "" : "\n", arg.c_str());
        first = false;
        const auto names = directory_names(host, all);
        if (long_form) std::printf("total %zu\n", names.size() * 4);
        for (const auto &name : names) {
            if (!long_form) {
                std::printf("%s\n", name.c_str());
                continue;
            }
            struct stat entry {};
            const std::string entry_host = host + "/" + name;
            if (::lstat(entry_host.c_str(), &entry) == 0)
                print_long(c, resolve_phone_path(name, path).value_or(path), entry_host, name, entry);
        }
    }
    return status;
}

int command_mkdir(CommandContext &c) {
    const Options o = parse_options(c.args, "pm");
    if (o.unknown) return unknown_option(c, o.unknown);
    std::vector<std::string> operands = o.operands;
    mode_t mode = 0771;
    if (o.has('m')) {
        if (operands.empty() || !parse_octal_mode(operands.front(), mode)) return c.fail("bad mode");
        operands.erase(operands.begin());
    }
    int status = 0;
    for (const auto &arg : operands) {
        const auto path = c.sandbox.phone_path_of(arg);
        int error = path ? check_access(c, *path, true) : EACCES;
        if (error == 0 && make_one_directory(c.sandbox.host_path(*path), mode, o.has('p'), error)) continue;
        status = c.fail("'" + arg + "'", error);
    }
    return status;
}

int command_rmdir(CommandContext &c) {
    const Options o = parse_options(c.args, "p");
    if (o.unknown) return unknown_option(c, o.unknown);
    int status = 0;
    for (const auto &arg : o.operands) {
        const auto path = c.sandbox.phone_path_of(arg);
        int error = path ? check_access(c, *path, true) : EACCES;
        if (error == 0 && ::rmdir(c.sandbox.host_path(*path).c_str()) == 0) continue;
        if (error == 0) error = errno;
        status = c.fail("'" + arg + "'", error);
    }
    return status;
}

int command_rm(CommandContext &c) {
    const Options o = parse_options(c.args, "rRfiv");
    const bool recursive = o.has('r') || o.has('R'), force = o.has('f');
    int status = 0;
    for (const auto &arg : o.operands) {
        const auto where = c.sandbox.phone_path_of(arg);
        if (!where) {
            status = c.fail(arg, EACCES);
            continue;
        }
        const std::string &path = *where;
        const std::string host = c.sandbox.host_path(path);
        struct stat st {};
        if (::lstat(host.c_str(), &st) != 0) {
            if (!force) status = c.fail(arg, errno);
            continue;
        }
        if (const int denied = check_access(c, path, true)) {
            status = c.fail(arg, denied);
        } else if (S_ISDIR(st.st_mode) && !recursive) {
            status = c.fail(arg, EISDIR);
        } else if (!(S_ISDIR(st.st_mode) ? remove_tree(host) : ::unlink(host.c_str()) == 0)) {
            status = c.fail(arg, errno);
        }
    }
    return status;
}

int command_mv(CommandContext &c) {
    const Options o = parse_options(c.args, "fniTv");
    if (o.operands.size() < 2) return c.fail("Needs 2 arguments");
    const auto target_path = c.sandbox.phone_path_of(o.operands.back());
    if (!target_path) return c.fail("'" + o.operands.back() + "'", EACCES);
    const std::string &target = *target_path;
    struct stat target_st {};
    const bool into_directory = ::stat(c.sandbox.host_path(target).c_str(), &target_st) == 0 && S_ISDIR(target_st.st_mode);
    if (o.operands.size() > 2 && !into_directory) return c.fail("'" + o.operands.back() + "'", ENOTDIR);
    int status = 0;
    for (std::size_t i = 0; i + 1 < o.operands.size(); ++i) {
        const std::string &arg = o.operands[i];
        const auto from_path = c.sandbox.phone_path_of(arg);
        if (!from_path) {
            status = c.fail("bad '" + arg + "'", EACCES);
            continue;
        }
        const std::string &from = *from_path;
        // The last name of a normal path is a plain name, so the join stays inside.
        const std::string to = into_directory ? resolve_phone_path(from.substr(from.rfind('/') + 1), target).value_or(target) : target;
        struct stat st {};
        int error = ::lstat(c.sandbox.host_path(from).c_str(), &st) != 0 ? errno : 0;
        if (error == 0) error = check_access(c, from, true);
        if (error == 0) error = check_access(c, to, true);
        if (error == 0 && ::rename(c.sandbox.host_path(from).c_str(), c.sandbox.host_path(to).c_str()) != 0) error = errno;
        if (error != 0) status = c.fail("bad '" + arg + "'", error);
    }
    return status;
}

int command_chmod(CommandContext &c) {
    const Options o = parse_options(c.args, "Rfv");
    if (o.operands.size() < 2) return c.fail("Needs 2 arguments");
    mode_t mode = 0;
    if (!parse_octal_mode(o.operands[0], mode)) return c.fail("bad mode '" + o.operands[0] + "'");
    int status = 0;
    for (std::size_t i = 1; i < o.operands.size(); ++i) {
        const auto path = c.sandbox.phone_path_of(o.operands[i]);
        int error = path ? check_access(c, *path, true) : EACCES;
        if (error == 0 && ::chmod(c.sandbox.host_path(*path).c_str(), mode) != 0) error = errno;
        if (error != 0) status = c.fail(o.operands[i], error);
    }
    return status;
}

int command_cat(CommandContext &c) {
    std::vector<std::string> files = c.args.empty() ? std::vector<std::string>{"-"} : c.args;
    int status = 0;
    char buffer[64 * 1024];
    for (const auto &arg : files) {
        wrenlink::UniqueFd owned;
        int fd = 0;
        if (arg != "-") {
            const auto path = c.sandbox.phone_path_of(arg);
            if (const int denied = path ? check_access(c, *path, false) : EACCES) {
                status = c.fail(arg, denied);
                continue;
            }
            owned.reset(::open(c.sandbox.host_path(*path).c_str(), O_RDONLY | O_CLOEXEC));
            if (!owned) {
                status = c.fail(arg, errno);
                continue;
            }
            fd = owned.get();
        }
        ssize_t n = 0;
        while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
            if (!write_all(1, buffer, static_cast<std::size_t>(n))) return 1;
    }
    return status;
}

// dd if=FILE of=FILE [bs=N] [count=N]: block copies, with the usual tally on standard error.
int command_dd(CommandContext &c) {
    std::string in_arg, out_arg;
    std::size_t block = 512;
    long long count = -1;
    for (const auto &a : c.args) {
        const auto eq = a.find('=');
        if (eq == std::string::npos) return c.fail("bad argument '" + a + "'");
        const std::string key = a.substr(0, eq), value = a.substr(eq + 1);
        if (key == "if") in_arg = value;
        else if (key == "of") out_arg = value;
        else if (key == "bs") block = std::max<std::size_t>(1, std::strtoull(value.c_str(), nullptr, 10));
        else if (key == "count") count = std::strtoll(value.c_str(), nullptr, 10);
        else return c.fail("unknown operand " + key);
    }
    timeval started{};
    ::gettimeofday(&started, nullptr);
    wrenlink::UniqueFd in_owned, out_owned;
    int in = 0, out = 1;
    if (!in_arg.empty()) {
        const auto path = c.sandbox.phone_path_of(in_arg);
        if (const int denied = path ? check_access(c, *path, false) : EACCES) return c.fail(in_arg, denied);
        in_owned.reset(::open(c.sandbox.host_path(*path).c_str(), O_RDONLY | O_CLOEXEC));
        if (!in_owned) return c.fail(in_arg, errno);
        in = in_owned.get();
    }
    if (!out_arg.empty()) {
        const auto path = c.sandbox.phone_path_of(out_arg);
        if (const int denied = path ? check_access(c, *path, true) : EACCES) return c.fail(out_arg, denied);
        out_owned.reset(::open(c.sandbox.host_path(*path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!out_owned) return c.fail(out_arg, errno);
        out = out_owned.get();
    }
    std::vector<char> buffer(block);
    unsigned long long full = 0, partial = 0, bytes = 0;
    while (count < 0 || static_cast<long long>(full + partial) < count) {
        const ssize_t n = ::read(in, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return c.fail(in_arg.empty() ? "stdin" : in_arg, errno);
        if (n == 0) break;
        if (!write_all(out, buffer.data(), static_cast<std::size_t>(n))) return c.fail(out_arg.empty() ? "stdout" : out_arg, errno);
        (static_cast<std::size_t>(n) == block ? full : partial) += 1;
        bytes += static_cast<unsigned long long>(n);
    }
    timeval ended{};
    ::gettimeofday(&ended, nullptr);
    const double seconds = std::max(1e-6, static_cast<double>(ended.tv_sec - started.tv_sec) +
                                              static_cast<double>(ended.tv_usec - started.tv_usec) / 1e6);
    std::fprintf(stderr, "%llu+%llu records in\n%llu+%llu records out\n%llu bytes (%s) copied, %.6f s, %s/s\n", full, partial,
                 full, partial, bytes, human_size(static_cast<double>(bytes)).c_str(), seconds,
                 human_size(static_cast<double>(bytes) / seconds).c_str());
    return 0;
}

}  // namespace phone
