#include "phone_path.h"

namespace wrenlink::tools {

std::optional<std::vector<std::string>> phone_path_parts(std::string_view path) {
    std::vector<std::string> parts;
    std::size_t pos = 0;
    while (pos <= path.size()) {
        const std::size_t slash = path.find('/', pos);
        const std::size_t end = slash == std::string_view::npos ? path.size() : slash;
        const std::string_view part = path.substr(pos, end - pos);
        if (part == "..") {
            if (parts.empty()) return std::nullopt;
            parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.emplace_back(part);
        }
        pos = end + 1;
    }
    return parts;
}

std::optional<std::string> normal_phone_path(std::string_view path) {
    const auto parts = phone_path_parts(path);
    if (!parts) return std::nullopt;
    std::string out;
    for (const auto &part : *parts) {
        out += '/';
        out += part;
    }
    if (out.empty()) out.assign(1, '/');
    return out;
}

}  // namespace wrenlink::tools
