// Runs a fuzz target over the files of its corpus (files or folders given as arguments), each in
// a heap block of exactly its size so that AddressSanitizer sees any read past the end.
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

}  // namespace

int main(int argc, char **argv) {
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
