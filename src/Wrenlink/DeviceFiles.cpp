// Files and directories on the phone: rename, remove and create through the root shell, and
// copies between host and phone. The outcome is read from the text that came back.
#include <cstdio>

#include "Wrenlink/AdbText.h"
#include "Wrenlink/ComLog.h"
#include "Wrenlink/boundary.h"
#include "Wrenlink/device_run.h"
#include "Wrenlink/support.h"

using namespace wrenlink;

namespace {

constexpr int32_t kNothingRun = -1;

// One line in the root shell, judged on what the phone printed after it.
int32_t judge_root_line(const Line &line, const FailureVerdicts &verdicts) {
    if (!line) return kNothingRun;
    ToolOutput out;
    return classify_failure_text(run_root_shell(*line, out), verdicts);
}

// The direct transfers judge nothing: a null argument or a line too long runs nothing, every run
// gives 0.
int32_t transfer_unjudged(const char *name, const char *serial, const char *from, const char *to,
                          Line (*form)(const char *, const char *, const char *)) {
    ComLog::Log("Enter %s, serial %s", name, serial);
    const Line line = serial != nullptr && from != nullptr && to != nullptr ? form(serial, from, to) : Line{};
    if (!line) {
        ComLog::Log("%s invalid param\r\n", name);
        return kNothingRun;
    }
    ToolOutput out;
    run_tool(line, out);
    ComLog::Log("End %s", name);
    return 0;
}

}  // namespace

extern "C" {

int32_t AdbRenameFile(const char *serial, const char *oldPath, const char *newPath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || oldPath == nullptr || newPath == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun, [&] {
        return judge_root_line(format_command("mv  \"%s\"  \"%s\"", oldPath, newPath), kRemovalVerdicts);
    });
}

int32_t AdbRemoveFile(const char *serial, const char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || path == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun,
                            [&] { return judge_root_line(format_command("rm  \"%s\"", path), kRemovalVerdicts); });
}

int32_t AdbRemoveDirectory(const char *serial, const char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || path == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun, [&] {
        return judge_root_line(format_command("rmdir -r \"%s\"", path), kRemovalVerdicts);
    });
}

// Only the chmod line is judged: a mkdir that failed shows there, or not at all.
int32_t AdbMakeDirectory(const char *serial, const char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || path == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun, [&] {
        const Line mkdir = format_command("mkdir %s\r\n", path);
        const Line chmod = format_command("chmod 777 %s\r\n", path);
        if (!mkdir || !chmod) return kNothingRun;
        ToolOutput out;
        run_root_shell(*mkdir, out);
        out.clear();
        return classify_failure_text(run_root_shell(*chmod, out), kCopyVerdicts);
    });
}

int32_t AdbPushFile(const char *serial, const char *localPath, const char *phonePath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || localPath == nullptr || phonePath == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun, [&] {
        const Line line = format_command("%s -s %s push  \"%s\"  \"%s\"", "", serial, localPath, phonePath);
        if (!line) return kNothingRun;
        std::printf("AdbPushFile:%s\n", line->c_str());
        ToolOutput out;
        return classify_failure_text(run_tool(line, out), kPushVerdicts);
    });
}

// The copy goes through a temporary file that root can read: dd to it, open it to everyone, pull
// it, remove it. The removal's text is what is judged, so a dd that made no copy shows as a
// missing file there; the pull's own text is overwritten and never looked at.
int32_t AdbPullFile(const char *serial, const char *phonePath, const char *localPath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || phonePath == nullptr || localPath == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun, [&] {
        // The microseconds of the current second name the copy; nothing checks that it is free.
        const Line temporary = format_command("/data/local/tmp/%d", static_cast<int>(GetTickCount()));
        if (!temporary) return kNothingRun;
        const char *copy = temporary->c_str();
        const Line dd = format_command("dd  if=%s of=%s\r\n", phonePath, copy);
        const Line chmod = format_command("chmod 777 %s\r\n", copy);
        const Line pull = format_command("%s -s %s pull  \"%s\"  \"%s\"", "", serial, copy, localPath);
        const Line rm = format_command("rm %s\r\n", copy);
        // Every line is formed before the first runs, so a path too long leaves no copy behind.
        if (!dd || !chmod || !pull || !rm) return kNothingRun;
        ToolOutput out;
        run_root_shell(*dd, out);
        out.clear();
        run_root_shell(*chmod, out);
        out.clear();
        run_tool(pull, out);
        return classify_failure_text(run_root_shell(*rm, out), kCopyVerdicts);
    });
}

int32_t AdbPushFileEx(const char *serial, const char *localPath, const char *phonePath) {
    return guarded<int32_t>(kNothingRun, [&] {
        return transfer_unjudged("AdbPushFileEx", serial, localPath, phonePath,
                                 [](const char *s, const char *from, const char *to) {
                                     return format_command("%s -s %s push \"%s\" \"%s\"", "", s, from, to);
                                 });
    });
}

// The local path stands bare in the line: a blank in it splits it into two arguments.
int32_t AdbPullFileEx(const char *serial, const char *phonePath, const char *localPath) {
    return guarded<int32_t>(kNothingRun, [&] {
        return transfer_unjudged("AdbPullFileEx", serial, phonePath, localPath,
                                 [](const char *s, const char *from, const char *to) {
                                     return format_command("%s -s %s pull \"%s\" %s", "", s, from, to);
                                 });
    });
}

int32_t AdbGetFileInfo(void) { return 0; }

}  // extern "C"
