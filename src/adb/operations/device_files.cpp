#include "adb/operations/device_files.h"

#include <sys/time.h>

#include <cstdio>

#include "adb/operations/device_run.h"
#include "adb/text/tool_text.h"

namespace wrenlink::adb {

namespace {

constexpr int32_t kNothingRun = -1;

// One line in the root shell, judged on what the phone printed after it.
int32_t judge_root_line(const Line &line, const FailureVerdicts &verdicts) {
    if (!line) return kNothingRun;
    ToolOutput out;
    return classify_failure_text(root_text(*line, out), verdicts);
}

// The direct transfers judge nothing: a null argument or a line too long runs nothing, every run
// gives 0.
int32_t transfer_unjudged(const char *serial, const char *from, const char *to,
                          Line (*form)(const char *, const char *, const char *)) {
    const Line line = serial != nullptr && from != nullptr && to != nullptr ? form(serial, from, to) : Line{};
    if (!line) return kNothingRun;
    ToolOutput out;
    tool_text(line, out);
    return 0;
}

}  // namespace

// Kept in the lines below as callers' phones have always got them: the double blanks (the
// tokeniser and the phone's shell take two as one, but a shell that echoes its input puts them in
// the text a caller gets back, and push prints its line), the lines of rename and the removals
// with no line end, and "rmdir -r", which a phone's rmdir may refuse as an unknown option: the
// outcome is read from what these very lines make the phone print.
int32_t rename_file(const char *serial, const char *oldPath, const char *newPath) {
    if (serial == nullptr || oldPath == nullptr || newPath == nullptr) return kNothingRun;
    return judge_root_line(format_command("mv  \"%s\"  \"%s\"", oldPath, newPath), kRemovalVerdicts);
}

int32_t remove_file(const char *serial, const char *path) {
    if (serial == nullptr || path == nullptr) return kNothingRun;
    return judge_root_line(format_command("rm  \"%s\"", path), kRemovalVerdicts);
}

int32_t remove_directory(const char *serial, const char *path) {
    if (serial == nullptr || path == nullptr) return kNothingRun;
    return judge_root_line(format_command("rmdir -r \"%s\"", path), kRemovalVerdicts);
}

// Only the chmod line is judged: a mkdir that failed shows there, or not at all.
int32_t make_directory(const char *serial, const char *path) {
    if (serial == nullptr || path == nullptr) return kNothingRun;
    const Line mkdir = format_command("mkdir %s\r\n", path);
    const Line chmod = format_command("chmod 777 %s\r\n", path);
    if (!mkdir || !chmod) return kNothingRun;
    ToolOutput out;
    root_text(*mkdir, out);
    out.clear();
    return classify_failure_text(root_text(*chmod, out), kCopyVerdicts);
}

int32_t push_file(const char *serial, const char *localPath, const char *phonePath) {
    if (serial == nullptr || localPath == nullptr || phonePath == nullptr) return kNothingRun;
    const Line line = tool_line(serial, "push  \"%s\"  \"%s\"", localPath, phonePath);
    if (!line) return kNothingRun;
    std::printf("AdbPushFile:%s\n", line->c_str());  // kept: callers' logs have always shown it
    ToolOutput out;
    return classify_failure_text(tool_text(line, out), kPushVerdicts);
}

// The copy goes through a temporary file that root can read: dd to it, open it to everyone, pull
// it, remove it. The removal's text is what is judged, so a dd that made no copy shows as a
// missing file there; the pull's own text is overwritten and never looked at.
int32_t pull_file(const char *serial, const char *phonePath, const char *localPath) {
    if (serial == nullptr || phonePath == nullptr || localPath == nullptr) return kNothingRun;
    // The microseconds of the current second name the copy; nothing checks that it is free.
    const Line temporary = format_command("/data/local/tmp/%d", static_cast<int>(GetTickCount()));
    if (!temporary) return kNothingRun;
    const char *copy = temporary->c_str();
    const Line dd = format_command("dd  if=%s of=%s\r\n", phonePath, copy);
    const Line chmod = format_command("chmod 777 %s\r\n", copy);
    const Line pull = tool_line(serial, "pull  \"%s\"  \"%s\"", copy, localPath);  // kept: double blanks, as above
    const Line rm = format_command("rm %s\r\n", copy);
    // Every line is formed before the first runs, so a path too long leaves no copy behind.
    if (!dd || !chmod || !pull || !rm) return kNothingRun;
    ToolOutput out;
    root_text(*dd, out);
    out.clear();
    root_text(*chmod, out);
    out.clear();
    tool_text(pull, out);
    return classify_failure_text(root_text(*rm, out), kCopyVerdicts);
}

int32_t push_file_unjudged(const char *serial, const char *localPath, const char *phonePath) {
    return transfer_unjudged(serial, localPath, phonePath, [](const char *s, const char *from, const char *to) {
        return tool_line(s, "push \"%s\" \"%s\"", from, to);
    });
}

// The local path stands bare in the line: a blank in it splits it into two arguments.
int32_t pull_file_unjudged(const char *serial, const char *phonePath, const char *localPath) {
    return transfer_unjudged(serial, phonePath, localPath, [](const char *s, const char *from, const char *to) {
        return tool_line(s, "pull \"%s\" %s", from, to);
    });
}

}  // namespace wrenlink::adb

uint32_t GetTickCount() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_usec);
}
