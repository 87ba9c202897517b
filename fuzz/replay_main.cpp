// Runs a fuzz target over the files of its corpus (files or folders given as arguments), each in
// a heap block of exactly its size so that AddressSanitizer sees any read past the end.
//
// Meanwhile a timer fires SIGALRM every 100 microseconds at a handler without SA_RESTART, as
// libFuzzer's -timeout does every few seconds: a target whose reads can wait on its peer fails
// here at once, where under the fuzzer it would fail only now and then, on a loaded machine.
#include <signal.h>
#include <sys/time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

int replay(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // malloc(0) may return null; give the target a real, empty block.
    auto *block = static_cast<uint8_t *>(std::malloc(bytes.empty() ? 1 : bytes.size()));
    if (block == nullptr) return 1;
    if (!bytes.empty()) std::memcpy(block, bytes.data(), bytes.size());
    LLVMFuzzerTestOneInput(block, bytes.size());
    std::free(block);
    return 0;
}

void on_alarm(int) {}

// SIGALRM every `microseconds` while the object lives.
class Alarms {
public:
    explicit Alarms(suseconds_t microseconds) {
        struct sigaction action {};
        action.sa_handler = on_alarm;  // no SA_RESTART
        ::sigaction(SIGALRM, &action, nullptr);
        arm(microseconds);
    }
    ~Alarms() { arm(0); }
    Alarms(const Alarms &) = delete;
    Alarms &operator=(const Alarms &) = delete;

private:
    static void arm(suseconds_t microseconds) {
        const itimerval every{{0, microseconds}, {0, microseconds}};
        ::setitimer(ITIMER_REAL, &every, nullptr);
    }
};

}  // namespace

int main(int argc, char **argv) {
    const Alarms alarms(100);
    std::size_t runs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto &entry : std::filesystem::recursive_directory_iterator(arg)) {
                if (!entry.is_regular_file()) continue;
                if (replay(entry.path()) != 0) return 1;
                ++runs;
            }
        } else {
            if (replay(arg) != 0) return 1;
            ++runs;
        }
    }
    std::printf("replayed %zu inputs\n", runs);
    return runs == 0 ? 1 : 0;
}
