#include "soak/options.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <cstdlib>
#include <cstring>
#include <random>

namespace wrenlink::soak {

const char *const kUsage =
    "usage: wrenlink-soak [--minutes N] [--phones N] [--threads N] [--seed S] [--log FILE]\n"
    "\n"
    "Starts N simulated phones on a private adb server, each with a reference agent behind adb\n"
    "forwards, and calls the library from many threads across both halves while a seeded injector\n"
    "unplugs phones, kills the adb server and agents, stalls phones and removes forwards. Prints a\n"
    "table per fault kind and per call, and last\n"
    "  soak: C calls, F faults, K crashes, H hangs, X corrupt, U undocumented, L leaked\n"
    "Exits 0 only when the crashes, hangs, corrupt, undocumented and leaked counts are all 0 and\n"
    "the clean pass at the end went well.\n"
    "\n"
    "  --minutes N   minutes of faults after the warm-up, a decimal (default 1)\n"
    "  --phones N    phones, 1 to 64 (default 8)\n"
    "  --threads N   threads calling the library, 1 to 64 (default 8)\n"
    "  --seed S      the seed of the faults and of every thread's choices (default: drawn, printed)\n"
    "  --log FILE    the library's, the tool's and the soak's own output lines go there\n"
    "                (default: discarded)\n";

namespace {

bool whole_number(const char *text, long low, long high, long &value) {
    char *end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    return errno == 0 && end != text && *end == '\0' && value >= low && value <= high;
}

}  // namespace

Parsed parse_options(int argc, char **argv, Options &options, std::string &error) {
    bool seeded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") return Parsed::Help;
        static const char *const kTaking[] = {"--minutes", "--phones", "--threads", "--seed", "--log"};
        if (std::find(std::begin(kTaking), std::end(kTaking), option) == std::end(kTaking)) {
            error = (option.rfind("-", 0) == 0 ? "unknown option '" : "unexpected argument '") + option + "'";
            return Parsed::Bad;
        }
        if (i + 1 >= argc) {
            error = option + " needs a value";
            return Parsed::Bad;
        }
        const char *value = argv[++i];
        long number = 0;
        if (option == "--minutes") {
            char *end = nullptr;
            options.minutes = std::strtod(value, &end);
            if (end == value || *end != '\0' || !(options.minutes > 0 && options.minutes <= 24 * 60)) {
                error = "--minutes takes a number of minutes above 0, not '" + std::string(value) + "'";
                return Parsed::Bad;
            }
        } else if (option == "--phones" || option == "--threads") {
            if (!whole_number(value, 1, 64, number)) {
                error = option + " takes a whole number from 1 to 64, not '" + value + "'";
                return Parsed::Bad;
            }
            (option == "--phones" ? options.phones : options.threads) = static_cast<int>(number);
        } else if (option == "--seed") {
            char *end = nullptr;
            errno = 0;
            options.seed = std::strtoull(value, &end, 10);
            if (errno != 0 || end == value || *end != '\0' || value[0] == '-') {
                error = "--seed takes a whole number, not '" + std::string(value) + "'";
                return Parsed::Bad;
            }
            seeded = true;
        } else {
            options.log = value;
        }
    }
    if (!seeded) options.seed = std::random_device{}() % 1000000;
    return Parsed::Run;
}

}  // namespace wrenlink::soak
