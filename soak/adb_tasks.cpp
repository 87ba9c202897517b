// The adb half's tasks. Their results judge the tool's text or say only that a run was made, so
// their data are compared all the same but counted apart (Ledger::checked_apart), never as
// corruption.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "base/unique_fd.h"
#include "soak/phone_tree.h"
#include "soak/tasks.h"
#include "support/scratch.h"

namespace wrenlink::soak {

namespace {

constexpr std::size_t kLargestPush = 256 * 1024;

// One adb call under the watchdog: whether its result is its ok one.
template <class Call>
bool adb_call(Context &c, int phone, const char *name, int64_t &value, Call &&run) {
    Watched watched(c.dog, c.ledger, name, phone, Half::Adb);
    value = run();
    return watched.end(value) == Verdict::Ok;
}

void check_apart(Context &c, int phone, const char *call, int64_t value, Clock::time_point began, bool intact) {
    c.ledger.checked_apart(call, value_name(call, value), phone, began, intact);
}

std::string read_whole(const std::string &path) {
    std::string bytes;
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char piece[64 * 1024];
    for (ssize_t n; fd && (n = ::read(fd.get(), piece, sizeof piece)) > 0;) bytes.append(piece, static_cast<std::size_t>(n));
    return bytes;
}

bool write_whole(const std::string &path, const std::string &bytes) {
    const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return fd && ::write(fd.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool known_serial(const Farm &farm, const char *serial) {
    for (std::size_t i = 0; i < farm.size(); ++i)
        if (std::strncmp(serial, farm.phone(i).serial.c_str(), 32) == 0) return true;
    return false;
}

}  // namespace

bool phone_list_task(Context &c, std::size_t) {
    const auto began = Clock::now();
    PhoneInfo *phones = nullptr;
    uint32_t count = 0;
    int64_t value = 0;
    const bool ok = adb_call(c, kEveryPhone, "AdbGetPhoneList", value, [&] { return AdbGetPhoneList(&phones, &count); });
    // Every record names one of the farm's phones, each at most once.
    bool intact = count <= c.farm.size() && (count == 0 || phones != nullptr);
    for (uint32_t i = 0; intact && i < count; ++i) intact = known_serial(c.farm, phones[i].serial);
    check_apart(c, kEveryPhone, "AdbGetPhoneList", value, began, intact);
    WrenlinkFree(phones);
    // A clean pass wants every phone in the list.
    return ok && intact && count == c.farm.size();
}

bool phone_record_task(Context &c, std::size_t phone) {
    const std::string &serial = c.farm.phone(phone).serial;
    int64_t value = 0;
    switch (c.pick(0, 4)) {
    case 0: {
        char output[2048] = {};
        return adb_call(c, kEveryPhone, "AdbGetDevicesList", value, [&] { return AdbGetDevicesList(output); });
    }
    case 1: {
        PhoneInfo info{};
        std::strncpy(info.serial, serial.c_str(), sizeof info.serial - 1);
        return adb_call(c, static_cast<int>(phone), "AdbRereshDevInfo", value, [&] { return AdbRereshDevInfo(&info); });
    }
    default: break;
    }
    static constexpr struct {
        const char *name;
        int32_t (*read)(const char *, char *);
        const char *value;
    } kProperties[] = {{"AdbGetPhoneSoftVersion", AdbGetPhoneSoftVersion, "9"},
                       {"AdbGetPhoneProductModel", AdbGetPhoneProductModel, "Wren One"},
                       {"AdbGetPhoneManufacture", AdbGetPhoneManufacture, "Wrenfield"}};
    const auto &property = kProperties[c.pick(0, 2)];
    const auto began = Clock::now();
    char field[32] = {};
    const bool ok = adb_call(c, static_cast<int>(phone), property.name, value, [&] { return property.read(serial.c_str(), field); });
    const bool intact = std::strncmp(field, property.value, sizeof field) == 0;
    check_apart(c, static_cast<int>(phone), property.name, value, began, intact);
    return ok && intact;
}

bool shell_task(Context &c, std::size_t phone) {
    const std::string token = "soak-" + std::to_string(c.rng());
    const auto began = Clock::now();
    char output[2048] = {};
    int64_t value = 0;
    const bool ok = adb_call(c, static_cast<int>(phone), "AdbShellCommand", value, [&] {
        return AdbShellCommand(c.farm.phone(phone).serial.c_str(), ("echo " + token).c_str(), output, true);
    });
    const bool intact = output == token + "\n";
    check_apart(c, static_cast<int>(phone), "AdbShellCommand", value, began, intact);
    return ok && intact;
}

bool push_task(Context &c, std::size_t phone) {
    std::string bytes(c.pick<std::size_t>(1, kLargestPush), '\0');
    for (char &b : bytes) b = static_cast<char>(c.rng());
    const std::string local = c.scratch + "/push.bin";
    const std::string name = "/soak/push-" + std::to_string(c.thread) + ".bin";
    if (!write_whole(local, bytes)) return false;
    const auto began = Clock::now();
    int64_t value = 0;
    const bool ok = adb_call(c, static_cast<int>(phone), "AdbPushFile", value, [&] {
        return AdbPushFile(c.farm.phone(phone).serial.c_str(), local.c_str(), ("/sdcard" + name).c_str());
    });
    const bool intact = read_whole(c.farm.phone(phone).storage + name) == bytes;
    check_apart(c, static_cast<int>(phone), "AdbPushFile", value, began, intact);
    return ok && intact;
}

bool pull_task(Context &c, std::size_t phone) {
    const std::string local = c.scratch + "/pull.bin";
    ::unlink(local.c_str());
    const auto began = Clock::now();
    int64_t value = 0;
    const bool ok = adb_call(c, static_cast<int>(phone), "AdbPullFileEx", value, [&] {
        return AdbPullFileEx(c.farm.phone(phone).serial.c_str(), kPullPhonePath, local.c_str());
    });
    const std::string pulled = read_whole(local);
    bool intact = pulled.size() == kPullSize;
    for (std::size_t i = 0; intact && i < pulled.size(); ++i) intact = pulled[i] == support::pattern_byte(i);
    check_apart(c, static_cast<int>(phone), "AdbPullFileEx", value, began, intact);
    return ok && intact;
}

bool packages_task(Context &c, std::size_t phone) {
    const bool system = c.pick(0, 1) == 1;
    const char *name = system ? "AdbListPackegeSys" : "AdbListPackege3";
    const auto began = Clock::now();
    char *text = nullptr;
    uint32_t length = 0;
    int64_t value = 0;
    const bool ok = adb_call(c, static_cast<int>(phone), name, value, [&] {
        const char *serial = c.farm.phone(phone).serial.c_str();
        return system ? AdbListPackegeSys(serial, &text, &length) : AdbListPackege3(serial, &text, &length);
    });
    // The profile's packages: com.wrenfield.notes the user's, the other three the system's.
    const char *expected = system ? "package:android\n" : "package:com.wrenfield.notes\n";
    const bool intact = text != nullptr && std::strncmp(text, expected, std::strlen(expected)) == 0;
    check_apart(c, static_cast<int>(phone), name, value, began, intact);
    WrenlinkFree(text);
    return ok && intact;
}

const std::vector<TaskKind> &task_kinds() {
    // The adb half runs one tool at a time for the whole process, and a phone that stalls holds
    // every thread's next run: a third of the tasks go there, the rest to the agents, which work in
    // parallel. The phone list runs the tool three times for every phone: seldom.
    static const std::vector<TaskKind> kinds = {
        {"ping", ping_task, 15},         {"file", file_task, 30},           {"media list", media_task, 15},
        {"scan", scan_task, 8},          {"phone list", phone_list_task, 1}, {"phone record", phone_record_task, 8},
        {"shell line", shell_task, 7},   {"push", push_task, 6},            {"pull", pull_task, 6},
        {"package list", packages_task, 4},
    };
    return kinds;
}

}  // namespace wrenlink::soak
