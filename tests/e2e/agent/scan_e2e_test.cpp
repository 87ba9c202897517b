// Scans through the public interface against the reference agent program, over real sockets.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "Wrenlink/Wrenlink.h"
#include "agent_process.h"

namespace wrenlink::e2e {
namespace {

namespace fs = std::filesystem;

// What the callbacks saw, shared with a steering thread.
struct Seen {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> paths;
    std::vector<std::pair<int64_t, int64_t>> progress;
    std::vector<uint32_t> codes;

    // Waits until at least n items have come; false after ten seconds.
    bool wait_for_items(std::size_t n) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [&] { return paths.size() >= n; });
    }
};

Seen &seen_of(uint64_t user) { return *reinterpret_cast<Seen *>(static_cast<uintptr_t>(user)); }

void on_item(const char *item, uint64_t user) {
    Seen &s = seen_of(user);
    std::lock_guard lock(s.mutex);
    const std::string text = item;
    s.paths.push_back(text.substr(text.rfind('\t') + 1));  // "<size>\t<mtime>\t<MIME>\t<path>"
    s.changed.notify_all();
}
void on_code(uint32_t code, uint64_t user) {
    Seen &s = seen_of(user);
    std::lock_guard lock(s.mutex);
    s.codes.push_back(code);
}
void on_progress(int64_t done, int64_t total, uint64_t user) {
    Seen &s = seen_of(user);
    std::lock_guard lock(s.mutex);
    s.progress.emplace_back(done, total);
}

AgentStatus scan(NetConnection *conn, Seen &seen) {
    return NDDStartScan(conn, nullptr, on_item, on_code, on_progress,
                        static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&seen)));
}

// n files in directories of 100, written straight with open/write: quick enough for 10,000.
std::set<std::string> make_files(const fs::path &root, int n) {
    std::set<std::string> phone_paths;
    for (int i = 0; i < n; ++i) {
        const std::string dir = "dir" + std::to_string(i / 100);
        if (i % 100 == 0) fs::create_directories(root / dir);
        const std::string rel = dir + "/file" + std::to_string(i) + (i % 3 ? ".jpg" : ".dat");
        const int fd = ::open((root / rel).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(::write(fd, rel.data(), rel.size()), static_cast<ssize_t>(rel.size()));
        ::close(fd);
        phone_paths.insert("/" + rel);
    }
    return phone_paths;
}

TEST(ScanEndToEnd, ATreeOfTenThousandFilesIsFoundFileByFileExactlyOnce) {
    test::TempTree tree;
    const std::set<std::string> expected = make_files(tree.root(), 10000);
    AgentProcess agent(tree.root());
    NetConnection *conn = NetConnectionOpen("127.0.0.1", agent.port());
    ASSERT_NE(conn, nullptr);
    ASSERT_EQ(TestPing(conn), 0);

    Seen seen;
    ASSERT_EQ(scan(conn, seen), 0u);
    EXPECT_EQ(seen.paths.size(), expected.size()) << "a file found twice, or missed";
    EXPECT_EQ(std::set<std::string>(seen.paths.begin(), seen.paths.end()), expected);
    ASSERT_FALSE(seen.progress.empty());
    for (std::size_t i = 1; i < seen.progress.size(); ++i) {
        EXPECT_GT(seen.progress[i].first, seen.progress[i - 1].first);
        EXPECT_EQ(seen.progress[i].second, 10000);
    }
    EXPECT_EQ(seen.progress.back(), (std::pair<int64_t, int64_t>(10000, 10000)));
    EXPECT_EQ(seen.codes, std::vector<uint32_t>{0});

    // The control connection is still good for the next exchange.
    EXPECT_EQ(TestPing(conn), 0);
    NetConnectionClose(conn);
}

class SteeredScan : public ::testing::Test {
protected:
    void SetUp() override {
        expected = make_files(tree.root(), 300);
        conn = NetConnectionOpen("127.0.0.1", agent.port());
        control = NetConnectionOpen("127.0.0.1", agent.port());
        ASSERT_NE(conn, nullptr);
        ASSERT_NE(control, nullptr);
    }
    void TearDown() override {
        NetConnectionClose(conn);
        NetConnectionClose(control);
    }

    test::TempTree tree;
    std::set<std::string> expected;
    // A paced agent: a scan of 300 files takes about a second, long enough to steer. Pause and
    // resume are proven on the agent's own event stream and on the library's scan loop apart.
    AgentProcess agent{tree.root(), {"--scan-delay-us", "3000"}};
    NetConnection *conn = nullptr;     // runs the scan
    NetConnection *control = nullptr;  // steers it from a second thread
};

TEST_F(SteeredScan, StopEndsTheScanEarlyWithTheAgentsCode) {
    Seen seen;
    std::thread steering([&] {
        ASSERT_TRUE(seen.wait_for_items(10));
        ASSERT_EQ(NDDStopScan(control), 0u);
    });
    ASSERT_EQ(scan(conn, seen), 0u);
    steering.join();
    EXPECT_LT(seen.paths.size(), expected.size());
    EXPECT_EQ(seen.codes, std::vector<uint32_t>{static_cast<uint32_t>(ECANCELED)});
    EXPECT_EQ(NDDStopScan(control), static_cast<uint32_t>(ESRCH)) << "no scan runs any more";

    // The next scan starts afresh and finds everything.
    Seen again;
    ASSERT_EQ(scan(conn, again), 0u);
    EXPECT_EQ(again.paths.size(), expected.size());
}

TEST_F(SteeredScan, ASecondStartIsRefusedWhileAScanRunsAndEraseWorksMeanwhile) {
    Seen seen;
    std::thread steering([&] {
        ASSERT_TRUE(seen.wait_for_items(5));
        Seen other;
        EXPECT_EQ(scan(control, other), static_cast<uint32_t>(EBUSY));
        EXPECT_TRUE(other.codes.empty());
        EXPECT_EQ(NDDEraseFile(control, "/dir2/file299.jpg"), 0u);
        EXPECT_EQ(NDDEraseFile(control, "/../outside"), static_cast<uint32_t>(EACCES));
        EXPECT_EQ(NDDStopScan(control), 0u);
    });
    ASSERT_EQ(scan(conn, seen), 0u);
    steering.join();
    EXPECT_FALSE(fs::exists(tree.root() / "dir2/file299.jpg"));
}

TEST_F(SteeredScan, AnAgentStoppedBySigtermEndsItsScanAndExitsCleanly) {
    Seen seen;
    std::thread steering([&] {
        ASSERT_TRUE(seen.wait_for_items(5));
        EXPECT_EQ(agent.stop(SIGTERM), 0);
    });
    ASSERT_EQ(scan(conn, seen), 0u);
    steering.join();
    EXPECT_EQ(seen.codes, std::vector<uint32_t>{static_cast<uint32_t>(ECANCELED)});
    EXPECT_NE(TestPing(conn), 0) << "the agent is gone";
}

}  // namespace
}  // namespace wrenlink::e2e
