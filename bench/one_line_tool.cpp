// Prints one line and exits: the cheapest tool a run can start. Run as `adb flood OUT ERR` it
// prints OUT bytes on stdout and ERR on stderr instead, in turns of 64 KiB: a tool that prints far
// more than any caller's buffer holds.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

bool write_all(int fd, const char *data, long n) {
    while (n > 0) {
        const ssize_t done = ::write(fd, data, static_cast<size_t>(n));
        if (done <= 0) return false;
        data += done;
        n -= done;
    }
    return true;
}

int flood(long out, long err) {
    static char piece[64 * 1024];
    std::memset(piece, 'x', sizeof piece);
    while (out > 0 || err > 0) {
        const long o = out < static_cast<long>(sizeof piece) ? out : static_cast<long>(sizeof piece);
        const long e = err < static_cast<long>(sizeof piece) ? err : static_cast<long>(sizeof piece);
        if (!write_all(1, piece, o) || !write_all(2, piece, e)) return 1;
        out -= o;
        err -= e;
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 4 && std::strcmp(argv[1], "flood") == 0) return flood(std::atol(argv[2]), std::atol(argv[3]));
    static const char line[] = "List of devices attached\n";
    return write_all(1, line, sizeof line - 1) ? 0 : 1;
}
