// Every exported entry point with each of its allocations failing in turn: the first, then the
// second, and so on until a call makes no more allocations than the one set to fail. Each call
// must come back with its normal result or its family's error value, never an exception or a
// crash, and leave nothing behind: no leak (LeakSanitizer), no descriptor, no child, a stream
// still in step for the next call.
//
// This binary alone replaces the allocator: the static core's calls of malloc, calloc and
// realloc are wrapped by the linker (--wrap), and operator new is replaced. Only allocations of
// the test's own thread, between arm() and disarm(), can fail.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "Wrenlink/NetConnection.h"
#include "Wrenlink/Wrenlink.h"
#include "Wrenlink/pauses.h"
#include "doubles/census.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/scripted_agent.h"

namespace {

// -1: no allocation fails. Otherwise the number of allocations still to succeed before the one
// that fails; after it, -1 again.
thread_local long g_untilFailure = -1;

bool this_allocation_fails() noexcept {
    if (g_untilFailure < 0) return false;
    return g_untilFailure-- == 0;
}

}  // namespace

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);

void *__wrap_malloc(std::size_t size) { return this_allocation_fails() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return this_allocation_fails() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *block, std::size_t size) {
    return this_allocation_fails() ? nullptr : __real_realloc(block, size);
}
}

void *operator new(std::size_t size) {
    void *block = this_allocation_fails() ? nullptr : __real_malloc(size != 0 ? size : 1);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void *operator new[](std::size_t size) { return ::operator new(size); }
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return this_allocation_fails() ? nullptr : __real_malloc(size != 0 ? size : 1);
}
void *operator new[](std::size_t size, const std::nothrow_t &tag) noexcept { return ::operator new(size, tag); }
void operator delete(void *block) noexcept { std::free(block); }
void operator delete[](void *block) noexcept { std::free(block); }
void operator delete(void *block, std::size_t) noexcept { std::free(block); }
void operator delete[](void *block, std::size_t) noexcept { std::free(block); }

using namespace wrenlink::test;
using namespace std::chrono_literals;

namespace {

// Lets the test's own set-up and clean-up inside a call allocate freely.
class Quiet {
public:
    Quiet() : saved_(g_untilFailure) { g_untilFailure = -1; }
    ~Quiet() { g_untilFailure = saved_; }
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;

private:
    long saved_;
};

// Calls `call` with allocation n failing, for n = 0, 1, 2 ... until a call has made all its
// allocations before the n-th. `call` returns whether its outcome was one of the allowed ones,
// judged after the allocator is quiet again. Gives the number of calls in which one failed.
template <class Call>
int with_each_allocation_failing(const char *name, Call call) {
    int injected = 0;
    for (long n = 0;; ++n) {
        g_untilFailure = n;
        const bool allowed = call();
        const bool failed = g_untilFailure < 0;
        g_untilFailure = -1;
        EXPECT_TRUE(allowed) << name << " with allocation " << n << (failed ? " failing" : " (none failed)");
        if (!failed) return injected;
        ++injected;
    }
}

// The agent answers every request well, by its opcode.
std::optional<std::string> serve(const Request &r) {
    const std::string item = le32(1) + "a.jpg" + '\0' + le64(2) + "/a.jpg" + '\0' + le64(3) + '\0';
    switch (r.header.opcode) {
    case 0: return bytes("00 00 00 01");
    case 1: return reply(0, le32(7));
    case 3: return reply(0, "12345678");
    case 5: return reply(0, le64(42));
    case 104: return reply(0, item + item);
    default: return reply(0);
    }
}

void free_list(__MediaBean *record) {
    while (record != nullptr) {
        __MediaBean *next = record->next;
        WrenlinkFree(record->text1);
        WrenlinkFree(record->text2);
        WrenlinkFree(record->text3);
        WrenlinkFree(record);
        record = next;
    }
}

NFCFileRef *open_handle(NetConnection *conn) {
    NFCFileRef *ref = nullptr;
    EXPECT_EQ(NFCFileRefOpen(conn, "/f", "r+", &ref), 0u);
    return ref;
}

constexpr auto kNoMemory = static_cast<AgentStatus>(ENOMEM);
constexpr int32_t kOutput = 2048;

}  // namespace

TEST(AllocationFailure, AgentEntryPoints) {
    ScriptedAgent agent;
    agent.add(Script().serve(serve));
    with_each_allocation_failing("NetConnectionOpen", [&] {
        NetConnection *c = NetConnectionOpen("127.0.0.1", agent.port());
        const Quiet quiet;
        if (c != nullptr) NetConnectionClose(c);
        return true;  // null or a handle, both fine; nothing may throw or leak
    });
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    auto ok_or_no_memory = [](AgentStatus r) { return r == 0 || r == kNoMemory; };

    EXPECT_GT(with_each_allocation_failing("TestPing", [&] {
                  const int32_t r = TestPing(conn);
                  return r == 0 || r == -2;
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("NMCListImages", [&] {
                  __MediaBean head{};
                  uint32_t count = 99;
                  const AgentStatus r = NMCListImages(conn, &head, &count);
                  const Quiet quiet;
                  free_list(head.next);
                  return (r == 0 && count == 2) || (r == kNoMemory && count == 99 && head.next == nullptr);
              }),
              0);
    const struct {
        const char *name;
        AgentStatus (*run)(NetConnection *, const char *);
    } textOperations[] = {{"NMCAddImage", NMCAddImage},           {"NMCDelMusic", NMCDelMusic},
                          {"NFCFileRefDelete", NFCFileRefDelete}, {"NFCFileRefMkDir", NFCFileRefMkDir},
                          {"NFCFileRefAccess", NFCFileRefAccess}, {"NDDEraseFile", NDDEraseFile}};
    for (const auto &op : textOperations) {
        EXPECT_GT(with_each_allocation_failing(op.name, [&] { return ok_or_no_memory(op.run(conn, "/x")); }), 0);
    }
    EXPECT_GT(with_each_allocation_failing("NDDStopScan", [&] { return ok_or_no_memory(NDDStopScan(conn)); }), 0);
    EXPECT_GT(with_each_allocation_failing("NFCFileRefOpen", [&] {
                  NFCFileRef *ref = reinterpret_cast<NFCFileRef *>(0x1);
                  const AgentStatus r = NFCFileRefOpen(conn, "/f", "r", &ref);
                  const Quiet quiet;
                  if (ref != nullptr) NFCFileRefClose(conn, ref);
                  return (r == 0 && ref != nullptr) || (r == kNoMemory && ref == nullptr);
              }),
              0);

    NFCFileRef *ref = open_handle(conn);
    EXPECT_GT(with_each_allocation_failing("NFCFileRefRead", [&] {
                  char buffer[8] = {};
                  int32_t length = sizeof buffer;
                  const AgentStatus r = NFCFileRefRead(conn, ref, buffer, &length);
                  return (r == 0 && length == 8 && std::memcmp(buffer, "12345678", 8) == 0) ||
                         (r == kNoMemory && length == 8);
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("NFCFileRefWrite",
                                           [&] { return ok_or_no_memory(NFCFileRefWrite(conn, ref, "ab", 2)); }),
              0);
    EXPECT_GT(with_each_allocation_failing("NFCFileRefTell", [&] {
                  int64_t at = -1;
                  const AgentStatus r = NFCFileRefTell(conn, ref, &at);
                  return (r == 0 && at == 42) || (r == kNoMemory && at == -1);
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("NFCFileRefSeek",
                                           [&] { return ok_or_no_memory(NFCFileRefSeek(conn, ref, 5, 0)); }),
              0);
    EXPECT_EQ(NFCFileRefClose(conn, ref), 0u);
    // A close past its gate has released the handle whatever it returns.
    EXPECT_GT(with_each_allocation_failing("NFCFileRefClose", [&] {
                  NFCFileRef *handle = nullptr;
                  {
                      const Quiet quiet;
                      handle = open_handle(conn);
                  }
                  return ok_or_no_memory(NFCFileRefClose(conn, handle));
              }),
              0);
    EXPECT_EQ(conn->fileError + conn->sendError, 0);
    EXPECT_EQ(TestPing(conn), 0);  // the stream is still in step
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

namespace {

using Said = std::vector<std::string>;

// The callbacks record with the allocator quiet: their allocations are the test's, not the scan's.
void on_item(const char *item, uint64_t said) {
    const Quiet quiet;
    reinterpret_cast<Said *>(said)->push_back(item);
}
void on_code(uint32_t code, uint64_t said) {
    const Quiet quiet;
    reinterpret_cast<Said *>(said)->push_back("code:" + std::to_string(code));
}

}  // namespace

// A scan that can't be followed (no block for its arguments, its connection or its buffer) tells
// code 22, as a stream that ends at once.
TEST(AllocationFailure, Scan) {
    ScriptedAgent control, events(10244);
    control.add(Script().serve([](const Request &) { return reply(0); }));
    events.add(Script().expect(std::string(4, '\0')).send(event(207, "item") + event(206, le32(0))));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", control.port());
    ASSERT_NE(conn, nullptr);
    EXPECT_GT(with_each_allocation_failing("NDDStartScan", [&] {
                  Said said;
                  const AgentStatus r = NDDStartScan(conn, nullptr, on_item, on_code, nullptr, reinterpret_cast<uint64_t>(&said));
                  const Quiet quiet;
                  return (r == 0 && said == Said{"item", "code:0"}) || (r == 0 && said == Said{"code:22"}) ||
                         (r == kNoMemory && said.empty());
              }),
              0);
    EXPECT_EQ(conn->sendError, 0);
    NetConnectionClose(conn);
}

TEST(AllocationFailure, AdbEntryPoints) {
    FakeAdb adb;
    adb.scenario(R"S(args x out "ok"
when "shell echo" out "echoed"
when "shell id" out "uid=0(root)"
prompt "# "
on ls out "listing")S");
    wrenlink::pauses::shorten(1ms);
    const int descriptors = open_descriptors();
    auto text = [](const char *buffer) { return std::string(buffer, strnlen(buffer, kOutput)); };

    EXPECT_GT(with_each_allocation_failing("AdbCommand", [&] {
                  char out[kOutput] = {};
                  const int32_t r = AdbCommand(" x", out, kOutput, true);
                  return r == 0 && (text(out) == "ok" || text(out).empty());
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("AdbCommand without waiting", [&] {
                  char out[kOutput] = {};
                  return AdbCommand(" x", out, kOutput, false) == 0 && text(out).empty();
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("AdbShellCommand", [&] {
                  char out[kOutput] = {};
                  const int32_t r = AdbShellCommand("S", "echo", out, true);
                  return (r == 1 && (text(out) == "echoed" || text(out).empty())) || (r == -1 && text(out).empty());
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("AdbRootShell", [&] {
                  char out[kOutput] = {};
                  return AdbRootShell(nullptr, "ls\n", out) == 0 && (text(out).rfind("listing", 0) == 0 || text(out).empty());
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("AdbIsAdbRoot", [&] {
                  uint8_t isRoot = 7;
                  const int32_t r = AdbIsAdbRoot("S", &isRoot);
                  return (r == 0 && (isRoot == 1 || isRoot == 0)) || (r == -1 && isRoot == 7);
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("AdbForward", [] { return AdbForward("S", 1, 2) == 0; }), 0);
    EXPECT_GT(with_each_allocation_failing("AdbRestartAdb", [] { return AdbRestartAdb() == 0; }), 0);
    const std::string tool = FakeAdb::tool();
    EXPECT_GT(with_each_allocation_failing("AndGetAdbFullpath", [&] {
                  const char *path = AndGetAdbFullpath();
                  const Quiet quiet;
                  return path == tool || std::string(path).empty();
              }),
              0);
    EXPECT_GT(with_each_allocation_failing("WrenlinkMalloc", [] {
                  void *block = WrenlinkMalloc(16);
                  WrenlinkFree(block);
                  return true;
              }),
              0);
    wrenlink::pauses::restore();
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(zombie_child_left());
}

// The device operations over one phone. Whatever fails, a result of the operation's family comes
// back, and what it hands over is either whole or not there at all.
TEST(AllocationFailure, DeviceEntryPoints) {
    FakeAdb adb;
    adb.scenario(R"S(args devices out "List of devices attached\nSER\tdevice\n\n"
when "ro.build.version.release" out "14\n"
when "ro.product.manufacturer" out "Wren\n"
when "ro.product.model" out "One\n"
when "list packages -3" out "package:com.a\n"
when "list packages |" out "package:com.a\n"
when "dumpsys package" out "versionName=1.0\n"
when dumpsys out "ActivityRecord{1 u0 com.a/.Main t1}\n"
when "am start" out "Starting: Intent { cmp=com.a/.Main }\n"
when "df " out "/data 10G 4G 6G 40% /data\n"
prompt "# ")S");
    wrenlink::pauses::shorten(1ms);
    const int descriptors = open_descriptors();
    auto text = [](const char *buffer) { return std::string(buffer, strnlen(buffer, kOutput)); };
    const struct {
        const char *name;
        std::function<bool()> run;
    } operations[] = {
        {"AdbGetDevicesList", [&] {
             char out[kOutput] = {};
             const int32_t r = AdbGetDevicesList(out);
             return (r == 0 && text(out) == "SER-author;") || (r == -1 && text(out).empty());
         }},
        {"AdbGetPhoneList", [&] {
             PhoneInfo *phones = reinterpret_cast<PhoneInfo *>(0x1);
             uint32_t count = 99;
             const int32_t r = AdbGetPhoneList(&phones, &count);
             const Quiet quiet;
             if (phones == reinterpret_cast<PhoneInfo *>(0x1)) return false;  // always stored
             const bool whole = phones != nullptr && count == 1 && std::strcmp(phones[0].serial, "SER") == 0 &&
                                std::strcmp(phones[0].productModel, "One") == 0;
             const bool none = phones == nullptr && count == 0;
             WrenlinkFree(phones);
             return r == 0 && (whole || none);
         }},
        {"AdbRereshDevInfo", [&] {
             PhoneInfo phone{};
             std::strcpy(phone.serial, "SER");
             const int32_t r = AdbRereshDevInfo(&phone);
             return r == 0 || r == 1;
         }},
        {"AdbGetPhoneProductModel", [&] {
             char field[32] = {};
             const int32_t r = AdbGetPhoneProductModel("SER", field);
             return (r == 0 && (text(field) == "One" || text(field).empty())) || r == -1;
         }},
        {"AdbRemoveFile", [] {
             const int32_t r = AdbRemoveFile("SER", "/x");
             return r == 0 || r == -1;
         }},
        {"AdbPullFile", [] {
             const int32_t r = AdbPullFile("SER", "/x", "/tmp/never-written");
             return r == 0 || r == -1;
         }},
        {"AdbInstallPackage", [] {
             const int32_t r = AdbInstallPackage("SER", "/tmp/a.apk");
             return r == 1 || r == -1;
         }},
        {"AdbListPackege3", [&] {
             char *list = reinterpret_cast<char *>(0x1);
             uint32_t length = 99;
             const int32_t r = AdbListPackege3("SER", &list, &length);
             const Quiet quiet;
             if (list == reinterpret_cast<char *>(0x1)) return false;  // always stored
             // The list, or (a run that failed inside reads as one that printed nothing) an empty
             // one, or none at all.
             const bool whole = list != nullptr && text(list) == "package:com.a\n" && length == 14;
             const bool empty = list != nullptr && text(list).empty() && length == 0;
             const bool none = list == nullptr && length == 0;
             WrenlinkFree(list);
             return r == 0 && (whole || empty || none);
         }},
        {"AdbCheckAppInstalled", [] {
             uint8_t installed = 0;
             return AdbCheckAppInstalled("SER", "com.a", &installed) == 0 && installed <= 1;
         }},
        {"AdbGetPackageProp", [&] {
             char value[kOutput] = {};
             const int32_t r = AdbGetPackageProp("SER", "com.a", "versionName=", value);
             return (r == 0 && (text(value) == "1.0" || text(value).empty())) || r == -2;
         }},
        {"AdbGetTopActivity", [&] {
             char name[kOutput] = {};
             const int32_t r = AdbGetTopActivity("SER", name);
             return (r == 0 && text(name) == "com.a/.Main") || (r == -1 && text(name).empty());
         }},
        {"AdbStartActivity", [] {
             const int32_t r = AdbStartActivity("SER", "com.a/.Main");
             return r == 0 || r == -1;
         }},
        {"AdbGetFirstSDCardPath", [&] {
             char path[16] = {};
             return AdbGetFirstSDCardPath("SER", path) == 0;
         }},
        {"AdbGetStorageFreespace", [] {
             uint64_t bytes = 0;
             const int32_t r = AdbGetStorageFreespace("SER", "/data", &bytes);
             return (r == 0 && (bytes == 6ull << 30 || bytes == 0)) || r == -2;
         }},
    };
    for (const auto &op : operations) EXPECT_GT(with_each_allocation_failing(op.name, op.run), 0) << op.name;
    wrenlink::pauses::restore();
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(zombie_child_left());
}
