// What a file is, by its extension: its MIME type and the catalogue it belongs to, if any.
#pragma once

#include <optional>
#include <string_view>

namespace wrenlink::reference_agent {

enum class MediaKind { Image = 0, Music = 1, Video = 2 };
constexpr int kMediaKinds = 3;

// The catalogue a file name belongs to (case-insensitive extension), if any.
std::optional<MediaKind> media_kind_of(std::string_view name);
// The MIME type of a file name; "application/octet-stream" for an unknown extension.
std::string_view mime_type_of(std::string_view name);

}  // namespace wrenlink::reference_agent
