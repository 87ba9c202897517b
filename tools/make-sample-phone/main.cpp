// make-sample-phone: fills a directory with a small phone's storage (kUsage says more).
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "media_files.h"

namespace {

namespace fs = std::filesystem;
using namespace wrenlink::sample;

const char kUsage[] =
    "usage: make-sample-phone DIR\n"
    "\n"
    "Fills DIR (made if needed) with a small phone's storage, every file real of its kind: camera\n"
    "pictures and screenshots (JPEG, PNG), music (WAV), movies (Motion-JPEG AVI) and downloads\n"
    "(PDF, text, ZIP). Files that exist are rewritten. Prints each file with its size.\n"
    "\n"
    "Exit status: 0 done; 1 when a file cannot be written; 2 for a bad command line.\n";

int written = 0;

int usage_error(const std::string &why) {
    std::fprintf(stderr, "make-sample-phone: %s\nusage: make-sample-phone DIR\n", why.c_str());
    return 2;
}

// Writes the file with its modification time set to the given day and time (local time).
void put(const fs::path &root, const std::string &relative, const std::string &bytes, int month, int day,
         int hour) {
    const fs::path p = root / relative;
    fs::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << bytes;
    out.close();  // before its times are set
    if (!out) throw std::runtime_error("cannot write " + p.string());
    std::tm when{};
    when.tm_year = 2024 - 1900;
    when.tm_mon = month - 1;
    when.tm_mday = day;
    when.tm_hour = hour;
    when.tm_isdst = -1;
    const timespec times[2] = {{std::mktime(&when), 0}, {std::mktime(&when), 0}};
    (void)::utimensat(AT_FDCWD, p.c_str(), times, 0);
    std::printf("  %8zu  %s\n", bytes.size(), relative.c_str());
    ++written;
}

}  // namespace

int main(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (arg.starts_with('-')) return usage_error("unknown option: " + std::string(arg));
    }
    if (argc < 2) return usage_error("the directory to fill (DIR) is missing");
    if (argc > 2) return usage_error("unexpected argument: " + std::string(argv[2]));
    const fs::path root = argv[1];
    try {
        for (unsigned i = 0; i < 6; ++i) {
            char name[64];
            std::snprintf(name, sizeof name, "DCIM/Camera/IMG_202406%02u_%02u%02u15.jpg", 10 + i, 9 + i, 12 + 7 * i);
            put(root, name, jpeg(test_picture(320, 240, i)), 6, static_cast<int>(10 + i), static_cast<int>(9 + i));
        }
        put(root, "Pictures/Screenshots/Screenshot_20240618-101500.png", png(test_picture(90, 160, 11)), 6, 18, 10);
        put(root, "Pictures/Screenshots/Screenshot_20240619-204210.png", png(test_picture(90, 160, 12)), 6, 19, 20);

        const std::vector<double> morning = {523.25, 659.25, 783.99, 1046.5, 783.99, 659.25};
        const std::vector<double> evening = {440.0, 392.0, 349.23, 329.63, 293.66, 261.63};
        const std::vector<double> rain = {293.66, 349.23, 440.0, 349.23, 293.66, 220.0, 293.66};
        put(root, "Music/Wren Quartet/01 Morning Call.wav", wav(morning, 250), 5, 2, 8);
        put(root, "Music/Wren Quartet/02 Evening Song.wav", wav(evening, 300), 5, 2, 8);
        put(root, "Music/Field Notes/Rain on the Roof.wav", wav(rain, 220), 5, 20, 21);
        put(root, "Notifications/chime.wav", wav({880.0, 1318.5}, 120), 1, 5, 12);

        put(root, "Movies/VID_20240614_181200.avi", avi(160, 120, 24, 12, 3), 6, 14, 18);
        put(root, "DCIM/Camera/VID_20240615_074502.avi", avi(160, 120, 12, 12, 30), 6, 15, 7);

        put(root, "Download/user-guide.pdf",
            pdf({"Wrenlink sample phone", "", "This document was made by make-sample-phone.",
                 "It stands for a file the phone's owner downloaded."}),
            6, 1, 15);
        const std::string notes = "Shopping: bread, apples, coffee\nCall the garage on Monday\n";
        put(root, "Download/notes.txt", notes, 6, 3, 19);
        put(root, "Download/holiday.zip",
            zip({{"itinerary.txt", "Day 1: harbour walk\nDay 2: lighthouse\n"}, {"notes.txt", notes}}), 6, 4, 9);
        fs::create_directories(root / "Android/data");
        fs::create_directories(root / "Alarms");
    } catch (const std::exception &e) {
        std::fprintf(stderr, "make-sample-phone: %s\n", e.what());
        return 1;
    }
    std::printf("%d files under %s\n", written, root.c_str());
    return 0;
}
