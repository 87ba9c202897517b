// Small but real media files, made from nothing: baseline JPEG, PNG, WAV, an MJPEG AVI, PDF and a
// stored ZIP. Each function returns the file's bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace wrenlink::sample {

// An RGB picture, 3 bytes per pixel, rows top to bottom.
struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;
};

// A picture of soft colour bands and a disc; `seed` varies the colours and the disc's place.
Picture test_picture(int width, int height, unsigned seed);

std::string jpeg(const Picture &picture, int quality = 80);
std::string png(const Picture &picture);
// 16-bit mono PCM at 8 kHz: a short tune of the given notes (Hz), each `note_ms` long.
std::string wav(const std::vector<double> &notes, int note_ms);
// Motion JPEG in an AVI container: `frames` pictures of a disc moving across.
std::string avi(int width, int height, int frames, int fps, unsigned seed);
// A one-page PDF that shows the given lines.
std::string pdf(const std::vector<std::string> &lines);
// A ZIP archive of the given files, stored without compression.
std::string zip(const std::vector<std::pair<std::string, std::string>> &files);

// The CRC-32 of zlib, PNG and ZIP (inverted at both ends).
uint32_t zlib_crc32(const std::string &bytes);

}  // namespace wrenlink::sample
