#include "program_paths.h"

#include <algorithm>
#include <cstdint>

#include "base/wire.h"

namespace phone {

namespace {

bool is_blank(char c) noexcept { return c == ' ' || c == '\t'; }

bool is_operator(char c) noexcept { return c == ';' || c == '&' || c == '|' || c == '(' || c == ')' || c == '\n'; }

bool is_redirection(char c) noexcept { return c == '<' || c == '>'; }

bool ends_word(char c) noexcept { return is_blank(c) || is_operator(c) || is_redirection(c); }

// The end of the word that begins at `at`: quoted text, escapes, $(...) and `...` belong to it.
std::size_t word_end(std::string_view s, std::size_t at) {
    int depth = 0;   // inside $( ... )
    while (at < s.size()) {
        const char c = s[at];
        if (c == '\\') {
            at += 2;
        } else if (c == '\'' || c == '`') {
            const auto close = s.find(c, at + 1);
            at = close == std::string_view::npos ? s.size() : close + 1;
        } else if (c == '"') {
            for (++at; at < s.size() && s[at] != '"'; at += s[at] == '\\' ? 2 : 1) {
            }
            ++at;
        } else if (c == '$' && at + 1 < s.size() && s[at + 1] == '(') {
            ++depth;
            at += 2;
        } else if (depth > 0 && (c == '(' || c == ')')) {
            depth += c == '(' ? 1 : -1;
            ++at;
        } else if (depth == 0 && ends_word(c)) {
            break;
        } else {
            ++at;
        }
    }
    return std::min(at, s.size());
}

bool is_assignment(std::string_view word) noexcept {
    const auto eq = word.find('=');
    if (eq == 0 || eq == std::string_view::npos) return false;
    for (std::size_t i = 0; i < eq; ++i) {
        const char c = word[i];
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
        if (!letter && !(i > 0 && c >= '0' && c <= '9')) return false;
    }
    return true;
}

// Words after which the next word is still a command.
bool keeps_command_position(std::string_view word) noexcept {
    for (const char *w : {"!", "{", "if", "then", "else", "elif", "do", "while", "until", "exec", "nohup"})
        if (word == w) return true;
    return false;
}

bool all_digits(std::string_view word) noexcept {
    return !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string shell_quoted(std::string_view text) {
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

}  // namespace


std::string route_program_paths(std::string_view line, std::string_view launcher) {
    std::string out;
    bool command_start = true;
    std::size_t at = 0;
    while (at < line.size()) {
        const char c = line[at];
        if (is_blank(c)) {
            out += c;
            ++at;
        } else if (c == '#') {
            const auto end = std::min(line.find('\n', at), line.size());
            out += line.substr(at, end - at);
            at = end;
        } else if (is_redirection(c)) {   // "> FILE", "2>&1", "<<EOF": no command among them
            while (at < line.size() && (is_redirection(line[at]) || line[at] == '&' || line[at] == '|')) out += line[at++];
            while (at < line.size() && is_blank(line[at])) out += line[at++];
            const auto end = word_end(line, at);
            out += line.substr(at, end - at);
            at = end;
        } else if (is_operator(c)) {
            out += c;
            ++at;
            command_start = c != ')';
        } else {
            const auto end = word_end(line, at);
            const std::string_view word = line.substr(at, end - at);
            const bool descriptor = all_digits(word) && end < line.size() && is_redirection(line[end]);
            if (command_start && !descriptor && !is_assignment(word) && !keeps_command_position(word)) {
                if (word.find('/') != std::string_view::npos) out += shell_quoted(launcher) + " ";
                command_start = false;
            }
            out += word;
            at = end;
        }
    }
    return out;
}

std::string emulator_for(std::string_view header) {
    if (header.size() < 20 || header.substr(0, 4) != "\x7f" "ELF" || header[5] != 1) return {};   // little-endian only
    if (header[4] != 1 && header[4] != 2) return {};
    const bool wide = header[4] == 2;
    const uint32_t machine = wrenlink::wire::load_u32(header.data() + 16) >> 16;   // e_machine follows e_type
    if (machine == 183 && wide) return "qemu-aarch64-static";
    if (machine == 40 && !wide) return "qemu-arm-static";
    if (machine == 62 && wide) return "qemu-x86_64-static";
    if (machine == 3 && !wide) return "qemu-i386-static";
    return {};
}

}  // namespace phone
