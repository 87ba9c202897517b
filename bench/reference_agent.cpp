#include "reference_agent.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "base/unique_fd.h"

extern char **environ;

namespace wrenlink::bench {

namespace {

namespace fs = std::filesystem;

// Under $WRENLINK_BENCH_TMPDIR when it is set (scripts/bench.sh removes that whatever happens to
// the run), else in memory where the system offers it.
std::string make_root() {
    std::error_code ec;
    const char *given = std::getenv("WRENLINK_BENCH_TMPDIR");
    const fs::path base = given != nullptr                     ? fs::path(given)
                          : fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm")
                                                               : fs::temp_directory_path();
    std::string pattern = (base / "wrenlink-bench-XXXXXX").string();
    return ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
}

bool write_file(const fs::path &path, std::size_t size) {
    fs::create_directories(path.parent_path());
    std::vector<char> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(size));
    return static_cast<bool>(out);
}

// The first line the agent prints: "listening on ADDRESS:PORT".
uint16_t read_port(int fd) {
    std::string line;
    char c = 0;
    while (line.size() < 200 && ::read(fd, &c, 1) == 1 && c != '\n') line += c;
    const auto colon = line.rfind(':');
    if (line.rfind("listening on ", 0) != 0 || colon == std::string::npos) return 0;
    return static_cast<uint16_t>(std::atoi(line.c_str() + colon + 1));
}

}  // namespace

ReferenceAgent *ReferenceAgent::get() {
    static std::unique_ptr<ReferenceAgent> agent = [] {
        std::unique_ptr<ReferenceAgent> a(new ReferenceAgent);
        std::string error;
        if (!a->start(error)) {
            std::fprintf(stderr, "reference agent: %s\n", error.c_str());
            a.reset();
        }
        return a;
    }();
    return agent.get();
}

bool ReferenceAgent::start(std::string &error) {
    root_ = make_root();
    if (root_.empty()) {
        error = "no temporary directory";
        return false;
    }
    const fs::path root(root_);
    if (!write_file(root / "read.bin", kFileSize) || !write_file(root / "write.bin", kFileSize) ||
        !write_file(root / "DCIM/a.jpg", 100) || !write_file(root / "DCIM/b.jpg", 200) ||
        !write_file(root / "DCIM/c.jpg", 300)) {
        error = "cannot write the served files under " + root_;
        return false;
    }

    int out[2];
    if (::pipe(out) != 0) {
        error = "no pipe";
        return false;
    }
    UniqueFd readEnd(out[0]), writeEnd(out[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, readEnd.get());
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const std::string path = WRENLINK_AGENT_PATH;
    std::vector<std::string> args{path, "--port", "0", root_};
    std::vector<char *> argv;
    for (auto &arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const int failure = ::posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        pid_ = -1;
        error = "cannot start " + path;
        return false;
    }
    writeEnd.reset();
    port_ = read_port(readEnd.get());
    if (port_ == 0) error = path + " did not say where it listens";
    return port_ != 0;
}

ReferenceAgent::~ReferenceAgent() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    std::error_code ec;
    if (!root_.empty()) fs::remove_all(root_, ec);
}

}  // namespace wrenlink::bench
