// Prints one line and exits: the cheapest tool a run can start.
#include <unistd.h>

int main() {
    static const char line[] = "List of devices attached\n";
    return ::write(1, line, sizeof line - 1) == static_cast<ssize_t>(sizeof line - 1) ? 0 : 1;
}
