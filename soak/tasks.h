// What the soak's threads do: tasks of a few calls each on one phone, across both halves. A task
// tells whether every call gave its call's ok result and every check of the data held; the clean
// pass at either end of the run asks that of every task on every phone.
#pragma once

#include <cstddef>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "soak/connections.h"
#include "soak/farm.h"
#include "soak/ledger.h"
#include "soak/watchdog.h"

namespace wrenlink::soak {

// The size of every thread's file on every phone.
constexpr std::size_t kFileSize = 64 * 1024;

// What a thread's own file on one phone holds, as far as the thread knows: after a write that
// failed it knows nothing, and the next file task writes the file anew. Its bytes are had from the
// start, so that the census after the warm-up already counts them.
struct FileModel {
    std::vector<unsigned char> bytes = std::vector<unsigned char>(kFileSize);
    bool known = false;
};

struct Context {
    Farm &farm;
    Ledger &ledger;
    Watchdog &dog;
    Connections &conns;
    std::mutex &scanLock;  // one event port for the machine: one scan at a time
    int thread;
    std::string scratch;   // the thread's own directory on the computer
    std::mt19937_64 rng;
    std::vector<FileModel> files;  // by phone

    template <class T>
    T pick(T low, T high) {
        return std::uniform_int_distribution<T>(low, high)(rng);
    }
};

using Task = bool (*)(Context &, std::size_t phone);

struct TaskKind {
    const char *name;
    Task run;
    int weight;  // how often the threads pick it
};

// The agent half: ping, the thread's file (writes and reads at random offsets, seeks and tells,
// checked byte for byte), a media list, a scan to its end.
bool ping_task(Context &c, std::size_t phone);
bool file_task(Context &c, std::size_t phone);
bool media_task(Context &c, std::size_t phone);
bool scan_task(Context &c, std::size_t phone);

// The adb half: the phone list and a phone's record and properties, a shell line, a push and a
// pull of a file, a package list.
bool phone_list_task(Context &c, std::size_t phone);
bool phone_record_task(Context &c, std::size_t phone);
bool shell_task(Context &c, std::size_t phone);
bool push_task(Context &c, std::size_t phone);
bool pull_task(Context &c, std::size_t phone);
bool packages_task(Context &c, std::size_t phone);

const std::vector<TaskKind> &task_kinds();

}  // namespace wrenlink::soak
