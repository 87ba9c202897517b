#include "media_types.h"

#include <array>
#include <cctype>
#include <string>

namespace wrenlink::reference_agent {

namespace {

struct TypeOf {
    std::string_view extension;
    std::string_view mime;
    std::optional<MediaKind> kind;
};

constexpr std::array kTypes = {
    TypeOf{"jpg", "image/jpeg", MediaKind::Image},
    TypeOf{"jpeg", "image/jpeg", MediaKind::Image},
    TypeOf{"png", "image/png", MediaKind::Image},
    TypeOf{"gif", "image/gif", MediaKind::Image},
    TypeOf{"webp", "image/webp", MediaKind::Image},
    TypeOf{"bmp", "image/bmp", MediaKind::Image},
    TypeOf{"heic", "image/heic", MediaKind::Image},
    TypeOf{"heif", "image/heif", MediaKind::Image},
    TypeOf{"mp3", "audio/mpeg", MediaKind::Music},
    TypeOf{"m4a", "audio/mp4", MediaKind::Music},
    TypeOf{"aac", "audio/aac", MediaKind::Music},
    TypeOf{"flac", "audio/flac", MediaKind::Music},
    TypeOf{"ogg", "audio/ogg", MediaKind::Music},
    TypeOf{"opus", "audio/opus", MediaKind::Music},
    TypeOf{"wav", "audio/wav", MediaKind::Music},
    TypeOf{"amr", "audio/amr", MediaKind::Music},
    TypeOf{"mid", "audio/midi", MediaKind::Music},
    TypeOf{"mp4", "video/mp4", MediaKind::Video},
    TypeOf{"m4v", "video/x-m4v", MediaKind::Video},
    TypeOf{"3gp", "video/3gpp", MediaKind::Video},
    TypeOf{"mkv", "video/x-matroska", MediaKind::Video},
    TypeOf{"webm", "video/webm", MediaKind::Video},
    TypeOf{"avi", "video/x-msvideo", MediaKind::Video},
    TypeOf{"mov", "video/quicktime", MediaKind::Video},
    TypeOf{"ts", "video/mp2t", MediaKind::Video},
    TypeOf{"txt", "text/plain", std::nullopt},
    TypeOf{"pdf", "application/pdf", std::nullopt},
    TypeOf{"zip", "application/zip", std::nullopt},
    TypeOf{"apk", "application/vnd.android.package-archive", std::nullopt},
    TypeOf{"json", "application/json", std::nullopt},
    TypeOf{"html", "text/html", std::nullopt},
};

const TypeOf *type_of(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    const std::size_t slash = name.rfind('/');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) return nullptr;
    std::string ext(name.substr(dot + 1));
    for (char &c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const auto &t : kTypes)
        if (t.extension == ext) return &t;
    return nullptr;
}

}  // namespace

std::optional<MediaKind> media_kind_of(std::string_view name) {
    const TypeOf *t = type_of(name);
    return t ? t->kind : std::nullopt;
}

std::string_view mime_type_of(std::string_view name) {
    const TypeOf *t = type_of(name);
    return t ? t->mime : std::string_view("application/octet-stream");
}

}  // namespace wrenlink::reference_agent
