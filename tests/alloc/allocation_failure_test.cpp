// One exported entry point for each way through the library (entry points that share their
// request and reply code share a row: the scan's start stands for the control requests and the
// media changes, the close for the path requests) with each of its allocations failing in turn: the first,
// then the second, and so on until a call makes no more allocations than the one set to fail. Each call
// must come back with its normal result or its family's error value, never an exception or a
// crash, and leave nothing behind: no leak (LeakSanitizer), no descriptor, no child, a stream
// still in step for the next call.
//
// This binary alone replaces the allocator: the static core's calls of malloc, calloc and
// realloc are wrapped by the linker (--wrap), and operator new is replaced. Only allocations of
// the test's own thread can fail, and only while a call is under way.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "agent/link/connection.h"
#include "Wrenlink/Wrenlink.h"
#include "adb/runner/pauses.h"
#include "doubles/census.h"
#include "doubles/fake_adb_fixture.h"
#include "doubles/media_list.h"
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

// An entry point called with allocation n failing, for n = 0, 1, 2 ... until a call has made all
// its allocations before the n-th. `run` tells whether the outcome is one of those allowed (it
// judges and cleans up under Quiet). Every case must meet at least one failure.
struct Case {
    const char *name;
    std::function<bool()> run;
};

void run_with_each_allocation_failing(const std::vector<Case> &cases) {
    for (const Case &c : cases) {
        long n = 0;
        for (bool failed = true; failed; ++n) {
            g_untilFailure = n;
            const bool allowed = c.run();
            failed = g_untilFailure < 0;
            g_untilFailure = -1;
            EXPECT_TRUE(allowed) << c.name << " with allocation " << n << (failed ? " failing" : " (none failed)");
        }
        EXPECT_GT(n, 1) << c.name << " made no allocation";
    }
}

std::string text_of(const char *buffer, std::size_t size = 2048) { return std::string(buffer, strnlen(buffer, size)); }

// The agent answers every request well, by its opcode. Its media list is longer than the reader's
// window, so that a failure on the way leaves part of the payload still to be dropped.
std::optional<std::string> serve(const Request &r) {
    const std::string item = media_item(1, std::string(12 * 1024, 'a'), 2, "/a.jpg", 3, "");
    switch (r.header.opcode) {
    case 0: return bytes("00 00 00 01");
    case 1: return reply(0, le32(7));
    case 3: return reply(0, "12345678");
    case 104: return reply(0, item + item);
    default: return reply(0);
    }
}

constexpr auto kNoMemory = static_cast<AgentStatus>(ENOMEM);
bool ok_or_no_memory(AgentStatus r) { return r == 0 || r == kNoMemory; }

using Said = std::vector<std::string>;

// The scan's callbacks record with the allocator quiet: their allocations are the test's.
void on_item(const char *item, uint64_t said) {
    const Quiet quiet;
    reinterpret_cast<Said *>(said)->push_back(item);
}
void on_code(uint32_t code, uint64_t said) {
    const Quiet quiet;
    reinterpret_cast<Said *>(said)->push_back("code:" + std::to_string(code));
}

// For the adb half: the pauses of the no-wait run and the root shell shortened, and the
// process's descriptors and children the same afterwards.
class AdbHalf : public ::testing::Test {
protected:
    void SetUp() override {
        wrenlink::pauses::shorten(1ms);
        descriptors_ = open_descriptors();
    }
    void TearDown() override {
        wrenlink::pauses::restore();
        EXPECT_EQ(open_descriptors(), descriptors_);
        EXPECT_FALSE(zombie_child_left());
    }
    FakeAdb adb_;

private:
    int descriptors_ = 0;
};

}  // namespace

// A failed allocation never leaves the stream out of step: the next call on the same connection
// reads its own reply. A scan that can't be followed (no block for its arguments, its connection
// or its buffer) tells code 22, as a stream that ends at once.
TEST(AllocationFailure, AgentEntryPoints) {
    ScriptedAgent agent, events(10244);
    agent.add(Script().serve(serve));
    events.add(Script().expect(std::string(4, '\0')).send(event(207, "item") + event(206, le32(0))));
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    NFCFileRef *ref = nullptr;
    ASSERT_EQ(NFCFileRefOpen(conn, "/f", "r+", &ref), 0u);
    run_with_each_allocation_failing({
        {"NetConnectionOpen", [&] {
             NetConnection *c = NetConnectionOpen("127.0.0.1", agent.port());
             const Quiet quiet;
             NetConnectionClose(c);  // null or a handle, both fine
             return true;
         }},
        {"TestPing", [&] {
             const int32_t r = TestPing(conn);
             return r == 0 || r == -2;
         }},
        {"NMCListImages", [&] {
             __MediaBean head{};
             uint32_t count = 99;
             const AgentStatus r = NMCListImages(conn, &head, &count);
             const Quiet quiet;
             free_media_list(head.next);
             return (r == 0 && count == 2) || (r == kNoMemory && count == 99 && head.next == nullptr);
         }},
        {"NDDStartScan", [&] {
             Said said;
             const AgentStatus r = NDDStartScan(conn, nullptr, on_item, on_code, nullptr, reinterpret_cast<uint64_t>(&said));
             const Quiet quiet;
             return (r == 0 && said == Said{"item", "code:0"}) || (r == 0 && said == Said{"code:22"}) ||
                    (r == kNoMemory && said.empty());
         }},
        {"NFCFileRefOpen", [&] {
             NFCFileRef *opened = reinterpret_cast<NFCFileRef *>(0x1);
             const AgentStatus r = NFCFileRefOpen(conn, "/f", "r", &opened);
             const Quiet quiet;
             if (opened != nullptr) NFCFileRefClose(conn, opened);
             return (r == 0 && opened != nullptr) || (r == kNoMemory && opened == nullptr);
         }},
        {"NFCFileRefRead", [&] {
             char buffer[8] = {};
             int32_t length = sizeof buffer;
             const AgentStatus r = NFCFileRefRead(conn, ref, buffer, &length);
             return (r == 0 && std::string(buffer, 8) == "12345678") || (r == kNoMemory && length == 8);
         }},
        // A close past its gate has released the handle whatever it returns (LeakSanitizer).
        {"NFCFileRefClose", [&] {
             NFCFileRef *handle = nullptr;
             {
                 const Quiet quiet;
                 NFCFileRefOpen(conn, "/f", "r", &handle);
             }
             return ok_or_no_memory(NFCFileRefClose(conn, handle));
         }},
    });
    EXPECT_EQ(NFCFileRefClose(conn, ref), 0u);
    EXPECT_EQ(conn->fileError + conn->sendError, 0);
    EXPECT_EQ(TestPing(conn), 0);
    NetConnectionClose(conn);
    EXPECT_EQ(agent.failures(), "");
}

// The runner, the root shell, and the device operations over one phone: a result of the
// operation's family, and what is handed over either whole or not there at all.
TEST_F(AdbHalf, EntryPoints) {
    adb_.scenario(R"S(args x out "ok"
args devices out "List of devices attached\nSER\tdevice\n\n"
when "ro.build.version.release" out "14\n"
when "ro.product.manufacturer" out "Wren\n"
when "ro.product.model" out "One\n"
when "list packages -3" out "package:com.a\n"
prompt "# "
on ls out "listing")S");
    const std::string tool = FakeAdb::tool();
    run_with_each_allocation_failing({
        {"AdbCommand", [] {
             char out[2048] = {};
             return AdbCommand(" x", out, sizeof out, true) == 0 && (text_of(out) == "ok" || text_of(out).empty());
         }},
        {"AdbCommand without waiting", [] {
             char out[2048] = {};
             return AdbCommand(" x", out, sizeof out, false) == 0 && text_of(out).empty();
         }},
        {"AdbRootShell", [] {
             char out[2048] = {};
             return AdbRootShell(nullptr, "ls\n", out) == 0 && (text_of(out).rfind("listing", 0) == 0 || text_of(out).empty());
         }},
        {"AndGetAdbFullpath", [&] {
             const char *path = AndGetAdbFullpath();
             const Quiet quiet;
             return path == tool || std::string(path).empty();
         }},
        {"AdbGetDevicesList", [] {
             char out[2048] = {};
             const int32_t r = AdbGetDevicesList(out);
             return (r == 0 && text_of(out) == "SER-author;") || (r == -1 && text_of(out).empty());
         }},
        {"AdbGetPhoneList", [] {
             PhoneInfo *phones = reinterpret_cast<PhoneInfo *>(0x1);
             uint32_t count = 99;
             const int32_t r = AdbGetPhoneList(&phones, &count);
             const Quiet quiet;
             if (phones == reinterpret_cast<PhoneInfo *>(0x1)) return false;  // always stored
             const bool whole = phones != nullptr && count == 1 && text_of(phones[0].serial, 32) == "SER" &&
                                text_of(phones[0].productModel, 32) == "One";
             const bool none = phones == nullptr && count == 0;
             WrenlinkFree(phones);
             return r == 0 && (whole || none);
         }},
        {"AdbPullFile", [] {
             const int32_t r = AdbPullFile("SER", "/x", "/tmp/never-written");
             return r == 0 || r == -1;
         }},
        {"AdbListPackege3", [] {
             char *list = reinterpret_cast<char *>(0x1);
             uint32_t length = 99;
             const int32_t r = AdbListPackege3("SER", &list, &length);
             const Quiet quiet;
             if (list == reinterpret_cast<char *>(0x1)) return false;  // always stored
             // The list, an empty one (a run that failed inside reads as one that printed
             // nothing), or none at all.
             const bool whole = list != nullptr && text_of(list) == "package:com.a\n" && length == 14;
             const bool empty = list != nullptr && text_of(list).empty() && length == 0;
             const bool none = list == nullptr && length == 0;
             WrenlinkFree(list);
             return r == 0 && (whole || empty || none);
         }},
    });
}
