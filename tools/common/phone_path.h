// Phone paths as both tools read them: absolute, "/" the top of the phone's storage.
//
// Both tools serve a host directory as the phone's "/", and both refuse a path that climbs above it
// ("/..", "a/../.."), rather than clamp it at "/" as a shell would: a request that tries to leave the
// served tree is a client's fault worth seeing, never a quiet way to the top.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace wrenlink::tools {

// The components of `path` with empty ones and "." dropped and ".." applied; nullopt when a ".."
// would climb above "/". A relative path is read from "/".
std::optional<std::vector<std::string>> phone_path_parts(std::string_view path);

// The same path written out: "/" for the top, "/a/b" otherwise; nullopt when it climbs above "/".
std::optional<std::string> normal_phone_path(std::string_view path);

}  // namespace wrenlink::tools
