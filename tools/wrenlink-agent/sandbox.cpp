#include "sandbox.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "phone_path.h"

namespace wrenlink::reference_agent {

namespace {

// realpath(3) into a std::string; empty with errno on failure.
std::string real_path(const std::string &path) {
    std::unique_ptr<char, decltype(&std::free)> r(::realpath(path.c_str(), nullptr), &std::free);
    return r ? std::string(r.get()) : std::string();
}

}  // namespace

std::string join_path(const std::string &base, const std::string &name) {
    std::string out = base;
    if (out.empty() || out.back() != '/') out.push_back('/');
    out += name;
    return out;
}

Sandbox::Sandbox(const std::string &root) {
    root_ = real_path(root);
    if (root_.empty()) throw std::system_error(errno, std::generic_category(), root);
    struct stat st {};
    if (::stat(root_.c_str(), &st) != 0) throw std::system_error(errno, std::generic_category(), root);
    if (!S_ISDIR(st.st_mode)) throw std::system_error(ENOTDIR, std::generic_category(), root);
}

bool Sandbox::contains(const std::string &real) const {
    if (root_ == "/") return !real.empty() && real.front() == '/';
    return real == root_ || (real.size() > root_.size() && real.compare(0, root_.size(), root_) == 0 &&
                             real[root_.size()] == '/');
}

std::string Sandbox::phone_path_of(const std::string &host) const {
    if (host == root_) return "/";
    return root_ == "/" ? host : host.substr(root_.size());
}

Resolved Sandbox::resolve(std::string_view phone, Leaf leaf) const {
    Resolved r;
    const auto normal = tools::phone_path_parts(phone);
    if (!normal) {
        r.error = kOutsideRoot;
        return r;
    }
    const std::vector<std::string> &parts = *normal;
    if (parts.empty()) {
        r.host = root_;
        r.phone.assign(1, '/');  // (an assignment from "/" trips a false -Wrestrict of GCC 12 at -O3)
        r.is_root = true;
        return r;
    }
    for (const auto &p : parts) r.phone += "/" + p;

    std::string parent = root_;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) parent = join_path(parent, parts[i]);
    const std::string parent_real = real_path(parent);
    if (parent_real.empty()) {
        r.error = errno;
        return r;
    }
    if (!contains(parent_real)) {
        r.error = kOutsideRoot;
        return r;
    }
    r.host = join_path(parent_real, parts.back());

    struct stat st {};
    if (leaf == Leaf::Follow && ::lstat(r.host.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        const std::string target = real_path(r.host);
        // A link that dangles would let a create land wherever it points.
        if (target.empty() || !contains(target)) {
            r.error = kOutsideRoot;
            return r;
        }
        r.host = target;
        r.is_root = target == root_;
    }
    return r;
}

}  // namespace wrenlink::reference_agent
