// Phone paths mapped under the served root.
//
// A phone path names a place on the phone ("/DCIM/Camera/a.jpg"); the agent serves it from the same
// place under its root directory. The path is first made normal by the rule both tools share
// (tools/common/phone_path.h): a `..` that would climb above the root is refused. The directory
// that holds the last component is then resolved by the system (symlinks included) and must still
// lie under the root. The last component itself is followed only where the operation follows links
// (open, stat, access, listing); a link that leads out of the root, or nowhere, is refused.
//
// What is not covered: a directory swapped for a link between the check and the use. The agent
// serves a tree that its own user owns, so such a race needs that user's help.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace wrenlink::reference_agent {

// The refusal of a path that would leave the root.
constexpr int kOutsideRoot = 13;  // EACCES

enum class Leaf { Follow, NoFollow };

struct Resolved {
    int error = 0;         // 0, or the errno that refuses the path
    std::string host;      // the path on this machine
    std::string phone;     // the normalised phone path, "/" for the root
    bool is_root = false;  // the path names the root itself
};

// base + "/" + name, with one slash only when base is "/".
std::string join_path(const std::string &base, const std::string &name);

class Sandbox {
public:
    // The root must exist and be a directory; throws std::system_error otherwise.
    explicit Sandbox(const std::string &root);

    const std::string &root() const { return root_; }
    Resolved resolve(std::string_view phone, Leaf leaf) const;
    // True when `real` (a path without links) is the root or lies under it.
    bool contains(const std::string &real) const;
    // The phone path of a host path under the root ("/" for the root).
    std::string phone_path_of(const std::string &host) const;

private:
    std::string root_;  // real path, without a trailing slash (except "/")
};

}  // namespace wrenlink::reference_agent
