// What every phone's storage holds before the soak starts, and the checks of the data that the
// agent reports about it: these files never change, so a media list or a complete scan that
// reports them otherwise carries corrupt data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "Wrenlink/Wrenlink.h"

namespace wrenlink::soak {

enum class MediaKind { Images, Musics, Videos };

// The file that every pull fetches, as the agent and adb name it.
constexpr const char *kPullAgentPath = "/soak/pull.bin";
constexpr const char *kPullPhonePath = "/sdcard/soak/pull.bin";
constexpr std::size_t kPullSize = 96 * 1024;

// Writes the fixed files under `storage` (the phone's /sdcard, the agent's root). False on failure.
bool make_phone_tree(const std::string &storage);

// True when a media list of `kind` names exactly the tree's files of that kind with their sizes;
// otherwise false with what differs in `why`.
bool media_list_matches(MediaKind kind, const __MediaBean *first, uint32_t count, std::string &why);

// True when the items of a complete scan (phone path -> size) hold every file of the tree with
// its size; otherwise false with what is missing in `why`.
bool scan_found_tree(const std::map<std::string, uint64_t> &found, std::string &why);

// A found item's text, "<size>\t<mtime>\t<MIME type>\t<path>", as path and size; false when it
// is not of that shape.
bool parse_found_item(const char *item, std::string &path, uint64_t &size);

}  // namespace wrenlink::soak
