#include "doubles/temp_tree.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace wrenlink::test {

namespace fs = std::filesystem;

TempTree::TempTree() {
    std::string pattern = (fs::temp_directory_path() / "wrenlink-tree-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    root_ = pattern;
}

TempTree::~TempTree() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

void TempTree::write(const std::string &relative, const std::string &content) const {
    const fs::path p = host(relative);
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << content;
}

std::string TempTree::read(const std::string &relative) const {
    std::ifstream in(host(relative), std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool TempTree::exists(const std::string &relative) const {
    std::error_code ec;
    return fs::exists(fs::symlink_status(host(relative), ec));
}

}  // namespace wrenlink::test
