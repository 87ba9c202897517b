// A directory under the system's temporary directory, removed with everything in it: the served
// tree of an agent under test, or any scratch space.
#pragma once

#include <filesystem>
#include <string>

namespace wrenlink::test {

class TempTree {
public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree &) = delete;
    TempTree &operator=(const TempTree &) = delete;

    const std::filesystem::path &root() const { return root_; }
    std::filesystem::path host(const std::string &relative) const { return root_ / relative; }
    // Writes a file (making its directories).
    void write(const std::string &relative, const std::string &content) const;
    std::string read(const std::string &relative) const;
    // True also for a link that leads nowhere.
    bool exists(const std::string &relative) const;

private:
    std::filesystem::path root_;
};

}  // namespace wrenlink::test
