/* The adb that the phone benchmarks' library finds at its Resources/adb: it appends its arguments
 * as one line to the file named by $WRENLINK_BENCH_TOOL_LOG (one write, so that the lines of runs at
 * the same moment never mix) and then becomes the real tool. So every run of the tool is counted,
 * at the cost of one more exec; in C, so that the exec loads nothing but the C library. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void log_run(const char *log, int argc, char **argv) {
    char line[4096] = "adb";
    size_t used = 3;
    for (int i = 1; i < argc && used + 2 < sizeof line; ++i) {
        const size_t room = sizeof line - used - 2;
        const size_t n = strlen(argv[i]) < room ? strlen(argv[i]) : room;
        line[used++] = ' ';
        memcpy(line + used, argv[i], n);
        used += n;
    }
    line[used++] = '\n';
    const int fd = open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return;
    if (write(fd, line, used) < 0) perror(log);
    close(fd);
}

int main(int argc, char **argv) {
    const char *log = getenv("WRENLINK_BENCH_TOOL_LOG");
    if (log != NULL) log_run(log, argc, argv);
    argv[0] = (char *)WRENLINK_REAL_ADB;
    execv(WRENLINK_REAL_ADB, argv);
    perror(WRENLINK_REAL_ADB);
    return 127;
}
