// A stand-in for the adb tool, built to <build>/Resources/adb where the library looks for the tool.
// It logs how it was run and answers from a scenario; see README.md beside this file for the
// format. Kept small and free of heavy static set-up: tests run it a thousand times.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace {

int g_log = -1;    // the event log, opened once (O_APPEND: every record lands whole)
pid_t g_pid = 0;
// In the interactive shell, stdout text waits here and goes out with the next prompt in one
// write, so that a reader never sees an answer without the prompt behind it.
std::string *g_held_out = nullptr;

void write_all(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        data.remove_prefix(static_cast<std::size_t>(n));
    }
}

// One log line: the kind and the process number, then each word behind a 0x1F byte, so that
// words may hold blanks. One write: the line lands whole.
void log_record(const char *kind, const std::vector<std::string> &words = {}) {
    std::string record = std::string(kind) + " " + std::to_string(g_pid);
    for (const auto &word : words) record.append("\x1f").append(word);
    if (g_log >= 0) write_all(g_log, record + "\n");
}

void sleep_ms(long ms) {
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    while (::nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

void log_line_safely(const char *line, int n) {
    if (g_log >= 0 && n > 0) (void)!::write(g_log, line, static_cast<std::size_t>(n));
}

// After `slow-term MS`, a terminated tool takes this long to go (and logs its exit).
long g_term_grace_ms = -1;

// Async-signal-safe: a terminated run leaves "term <pid>" behind and ends as the signal would.
void on_term(int) {
    char line[64];
    log_line_safely(line, std::snprintf(line, sizeof line, "term %ld\n", static_cast<long>(g_pid)));
    if (g_term_grace_ms >= 0) {
        sleep_ms(g_term_grace_ms);
        log_line_safely(line, std::snprintf(line, sizeof line, "exit %ld\x1f%d\n", static_cast<long>(g_pid), 128 + SIGTERM));
    }
    ::_exit(128 + SIGTERM);
}

[[noreturn]] void fail(const std::string &why) {
    write_all(STDERR_FILENO, "fake adb: " + why + "\n");
    ::_exit(2);
}

// ---- Scenario ------------------------------------------------------------------------------------

struct Action {
    std::string verb;
    std::string text;
    long number = 0;
    long number2 = 0;
};

struct Rule {
    std::string kind;  // when, args, always, on
    std::string pattern;
    std::vector<Action> actions;
};

struct Scenario {
    std::vector<Rule> rules;
    std::string prompt = "$ ";
};

// Blank-separated words; "..." quotes one, with \n \r \t \0 \\ \" inside.
std::vector<std::string> words_of(const std::string &line, int lineNo) {
    std::vector<std::string> words;
    std::size_t i = 0;
    while (i < line.size()) {
        if (line[i] == ' ' || line[i] == '\t') {
            ++i;
            continue;
        }
        std::string word;
        if (line[i] != '"') {
            while (i < line.size() && line[i] != ' ' && line[i] != '\t') word += line[i++];
            words.push_back(word);
            continue;
        }
        for (++i;; ++i) {
            if (i >= line.size()) fail("unterminated quote on line " + std::to_string(lineNo));
            const char c = line[i];
            if (c == '"') break;
            if (c != '\\') {
                word += c;
                continue;
            }
            if (++i >= line.size()) fail("lone backslash on line " + std::to_string(lineNo));
            const std::string_view escapes = "nrt0", meanings("\n\r\t\0", 4);
            const std::size_t e = escapes.find(line[i]);
            word += e == escapes.npos ? line[i] : meanings[e];
        }
        ++i;
        words.push_back(word);
    }
    return words;
}

std::vector<Action> actions_of(const std::vector<std::string> &words, std::size_t at, int lineNo) {
    const auto next = [&] {
        if (at >= words.size()) fail("missing argument on line " + std::to_string(lineNo));
        return words[at++];
    };
    std::vector<Action> actions;
    while (at < words.size()) {
        Action action;
        action.verb = words[at++];
        const std::string &v = action.verb;
        if (v == "out" || v == "err") {
            action.text = next();
        } else if (v == "exit" || v == "sleep" || v == "slow-term") {
            action.number = std::strtol(next().c_str(), nullptr, 10);
        } else if (v == "fill") {
            action.number = std::strtol(next().c_str(), nullptr, 10);
            action.number2 = std::strtol(next().c_str(), nullptr, 10);
        } else if (v != "linger" && v != "fds" && v != "ignore-term") {
            fail("unknown action '" + v + "' on line " + std::to_string(lineNo));
        }
        actions.push_back(action);
    }
    return actions;
}

std::string read_file(const char *path) {
    std::string text;
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return text;
    char chunk[4096];
    ssize_t n;
    while ((n = ::read(fd, chunk, sizeof chunk)) > 0) text.append(chunk, static_cast<std::size_t>(n));
    ::close(fd);
    return text;
}

Scenario load_scenario(const char *path) {
    Scenario scenario;
    if (path == nullptr) return scenario;
    const std::string text = read_file(path);
    std::size_t from = 0;
    for (int lineNo = 1; from < text.size(); ++lineNo) {
        std::size_t to = text.find('\n', from);
        if (to == std::string::npos) to = text.size();
        const auto words = words_of(text.substr(from, to - from), lineNo);
        from = to + 1;
        if (words.empty() || words[0][0] == '#') continue;
        const std::string &kind = words[0];
        if (kind == "prompt") {
            scenario.prompt = words.size() == 2 ? words[1] : "";
        } else if (kind == "always") {
            scenario.rules.push_back({kind, {}, actions_of(words, 1, lineNo)});
        } else if (kind == "when" || kind == "args" || kind == "on") {
            if (words.size() < 2) fail("missing pattern on line " + std::to_string(lineNo));
            scenario.rules.push_back({kind, words[1], actions_of(words, 2, lineNo)});
        } else {
            fail("unknown rule '" + kind + "' on line " + std::to_string(lineNo));
        }
    }
    return scenario;
}

// ---- Actions -------------------------------------------------------------------------------------

// N bytes on stdout ('A'..'Z' over and over) and M on stderr ('a'..'z'), in alternating 4 KiB
// pieces, so that both pipes fill at the same time.
void fill(long outBytes, long errBytes) {
    const long total[2] = {outBytes, errBytes};
    long done[2] = {0, 0};
    while (done[0] < total[0] || done[1] < total[1]) {
        for (int stream = 0; stream < 2; ++stream) {
            std::string chunk;
            for (; done[stream] < total[stream] && chunk.size() < 4096; ++done[stream]) {
                chunk += static_cast<char>((stream == 0 ? 'A' : 'a') + done[stream] % 26);
            }
            write_all(stream == 0 ? STDOUT_FILENO : STDERR_FILENO, chunk);
        }
    }
}

// A background process that keeps stdout and stderr open after the tool has exited, as the
// tool's server does when a run starts it. It goes by itself after a minute at the latest.
void linger() {
    const pid_t child = ::fork();
    if (child == 0) {
        g_pid = ::getpid();
        sleep_ms(60000);
        log_record("bgend");
        ::_exit(0);
    }
    if (child > 0) log_record("bg", {std::to_string(child)});
}

void log_descriptors() {
    std::vector<std::string> open;
    for (int fd = 0; fd < 1024; ++fd) {
        if (fd != g_log && ::fcntl(fd, F_GETFD) >= 0) open.push_back(std::to_string(fd));
    }
    log_record("fds", open);
}

void append_stdin_log(std::string_view bytes) {
    const char *path = std::getenv("WRENLINK_FAKE_ADB_STDIN");
    if (path == nullptr) return;
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return;
    write_all(fd, bytes);
    ::close(fd);
}

void flush_held_out() {
    if (g_held_out == nullptr) return;
    write_all(STDOUT_FILENO, *g_held_out);
    g_held_out->clear();
}

void write_out(std::string_view text) {
    if (g_held_out != nullptr) g_held_out->append(text);
    else write_all(STDOUT_FILENO, text);
}

[[noreturn]] void finish(int status) {
    flush_held_out();
    log_record("exit", {std::to_string(status)});
    ::_exit(status);
}

// Runs the actions in order; `exit` ends the tool at once.
void perform(const std::vector<Action> &actions) {
    for (const auto &a : actions) {
        if (a.verb == "out") {
            write_out(a.text);
        } else if (a.verb == "err") {
            write_all(STDERR_FILENO, a.text);
        } else if (a.verb == "exit") {
            finish(static_cast<int>(a.number));
        } else if (a.verb == "sleep") {
            flush_held_out();  // a burst, then a pause
            sleep_ms(a.number);
        } else if (a.verb == "fill") {
            flush_held_out();
            fill(a.number, a.number2);
        } else if (a.verb == "linger") {
            linger();
        } else if (a.verb == "fds") {
            log_descriptors();
        } else if (a.verb == "ignore-term") {
            ::signal(SIGTERM, SIG_IGN);
        } else if (a.verb == "slow-term") {
            g_term_grace_ms = a.number;
        }
    }
}

std::string trimmed(std::string_view text) {
    const char *junk = " \t\r\n";
    while (!text.empty() && (std::strchr(junk, text.front()) || text.front() == '\0')) text.remove_prefix(1);
    while (!text.empty() && (std::strchr(junk, text.back()) || text.back() == '\0')) text.remove_suffix(1);
    return std::string(text);
}

// A phone's shell on stdin and stdout: a prompt, then per command line (up to a line end, or the
// end of what one write brought) the first `on` rule whose text it holds; "su" without a rule
// makes the prompt "# ". Every byte read is logged.
void interactive_shell(const Scenario &scenario) {
    std::string prompt = scenario.prompt;
    std::string held;
    g_held_out = &held;
    write_out(prompt);
    flush_held_out();
    char chunk[4096];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) finish(0);
        const std::string_view bytes(chunk, static_cast<std::size_t>(n));
        append_stdin_log(bytes);
        std::size_t from = 0;
        while (from < bytes.size()) {
            std::size_t to = bytes.find('\n', from);
            if (to == std::string_view::npos) to = bytes.size();
            const std::string command = trimmed(bytes.substr(from, to - from));
            from = to + 1;
            if (command.empty()) continue;
            const Rule *rule = nullptr;
            for (const auto &r : scenario.rules) {
                if (r.kind == "on" && command.find(r.pattern) != std::string::npos) {
                    rule = &r;
                    break;
                }
            }
            if (rule != nullptr) perform(rule->actions);
            else if (command == "su") prompt = "# ";
            write_out(prompt);
            flush_held_out();
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    g_pid = ::getpid();
    if (const char *path = std::getenv("WRENLINK_FAKE_ADB_LOG")) {
        g_log = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
    log_record("argv", std::vector<std::string>(argv, argv + argc));
    std::string joined;
    for (int i = 1; i < argc; ++i) joined.append(i > 1 ? " " : "").append(argv[i]);
    ::signal(SIGTERM, on_term);

    const Scenario scenario = load_scenario(std::getenv("WRENLINK_FAKE_ADB_SCENARIO"));
    for (const auto &rule : scenario.rules) {
        const bool hit = rule.kind == "always" || (rule.kind == "when" && joined.find(rule.pattern) != std::string::npos) ||
                         (rule.kind == "args" && joined == rule.pattern);
        if (hit) {
            perform(rule.actions);
            finish(0);
        }
    }
    if (joined == "shell") interactive_shell(scenario);
    finish(0);
}
