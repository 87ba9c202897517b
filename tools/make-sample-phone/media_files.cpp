#include "media_files.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/crc.h"
#include "base/wire.h"

namespace wrenlink::sample {

namespace {

using wire::append_u32;

void append_u16(std::string &out, uint32_t v) {
    out.push_back(static_cast<char>(v & 0xFF));
    out.push_back(static_cast<char>((v >> 8) & 0xFF));
}
void append_be16(std::string &out, uint32_t v) {
    out.push_back(static_cast<char>((v >> 8) & 0xFF));
    out.push_back(static_cast<char>(v & 0xFF));
}
void append_be32(std::string &out, uint32_t v) {
    append_be16(out, v >> 16);
    append_be16(out, v & 0xFFFF);
}

uint8_t clamp_byte(double v) { return static_cast<uint8_t>(std::clamp(v, 0.0, 255.0)); }

// ---- JPEG: baseline, 4:4:4, the example tables of the JPEG standard ----------------------------

constexpr std::array<uint8_t, 64> kZigzag = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

constexpr std::array<uint8_t, 64> kLumaQuant = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,  14, 13, 16, 24, 40,  57,
    69, 56, 14, 17, 22,  29,  51,  87,  80, 62, 18, 22, 37,  56,  68,  109, 103, 77, 24, 35, 55,  64,
    81, 104, 113, 92, 49, 64, 78,  87,  103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr std::array<uint8_t, 64> kChromaQuant = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

struct HuffmanTable {
    std::array<uint8_t, 16> counts;  // codes of each length 1..16
    std::vector<uint8_t> values;
};

const HuffmanTable kDcLuma{{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}};
const HuffmanTable kDcChroma{{0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}};
const HuffmanTable kAcLuma{
    {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d},
    {0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22, 0x71,
     0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72,
     0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37,
     0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59,
     0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
     0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3,
     0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3,
     0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2,
     0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa}};
const HuffmanTable kAcChroma{
    {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77},
    {0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13, 0x22,
     0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1,
     0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36,
     0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58,
     0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a,
     0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a,
     0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba,
     0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda,
     0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa}};

// Code and length of each symbol, built from the counts as the standard's canonical codes.
struct HuffmanCode {
    std::array<uint16_t, 256> code{};
    std::array<uint8_t, 256> length{};
    explicit HuffmanCode(const HuffmanTable &table) {
        uint16_t next = 0;
        std::size_t k = 0;
        for (int len = 1; len <= 16; ++len) {
            for (int i = 0; i < table.counts[static_cast<std::size_t>(len - 1)]; ++i, ++k) {
                code[table.values[k]] = next++;
                length[table.values[k]] = static_cast<uint8_t>(len);
            }
            next = static_cast<uint16_t>(next << 1);
        }
    }
};

class BitWriter {
public:
    explicit BitWriter(std::string &out) : out_(out) {}
    void put(uint32_t bits, int count) {
        for (int i = count - 1; i >= 0; --i) {
            acc_ = static_cast<uint8_t>((acc_ << 1) | ((bits >> i) & 1u));
            if (++n_ == 8) emit();
        }
    }
    void flush() {
        while (n_ != 0) put(1, 1);  // pad with ones
    }

private:
    void emit() {
        out_.push_back(static_cast<char>(acc_));
        if (acc_ == 0xFF) out_.push_back('\0');  // byte stuffing
        acc_ = 0;
        n_ = 0;
    }
    std::string &out_;
    uint8_t acc_ = 0;
    int n_ = 0;
};

std::array<uint8_t, 64> scaled_table(const std::array<uint8_t, 64> &base, int quality) {
    const int scale = quality < 50 ? 5000 / quality : 200 - quality * 2;
    std::array<uint8_t, 64> out{};
    for (std::size_t i = 0; i < 64; ++i) out[i] = static_cast<uint8_t>(std::clamp((base[i] * scale + 50) / 100, 1, 255));
    return out;
}

void put_marker_segment(std::string &out, uint8_t marker, const std::string &body) {
    out.push_back(static_cast<char>(0xFF));
    out.push_back(static_cast<char>(marker));
    append_be16(out, static_cast<uint32_t>(body.size() + 2));
    out += body;
}

std::string huffman_segment(int table_class, int id, const HuffmanTable &table) {
    std::string s(1, static_cast<char>(table_class << 4 | id));
    for (uint8_t c : table.counts) s.push_back(static_cast<char>(c));
    for (uint8_t v : table.values) s.push_back(static_cast<char>(v));
    return s;
}

// The magnitude category of a coefficient and its bits.
void encode_value(BitWriter &w, int v, const HuffmanCode &table, int run) {
    int magnitude = v < 0 ? -v : v;
    int size = 0;
    while (magnitude) {
        ++size;
        magnitude >>= 1;
    }
    const int symbol = run << 4 | size;
    w.put(table.code[static_cast<std::size_t>(symbol)], table.length[static_cast<std::size_t>(symbol)]);
    if (size) w.put(static_cast<uint32_t>(v < 0 ? v + (1 << size) - 1 : v), size);
}

void encode_block(BitWriter &w, const std::array<double, 64> &block, const std::array<uint8_t, 64> &quant,
                  const HuffmanCode &dc, const HuffmanCode &ac, int &previous_dc) {
    // cosine[u][x]: the DCT's factors, worked out once rather than 8,192 times a block.
    static const auto cosine = [] {
        std::array<std::array<double, 8>, 8> c{};
        for (int u = 0; u < 8; ++u)
            for (int x = 0; x < 8; ++x)
                c[static_cast<std::size_t>(u)][static_cast<std::size_t>(x)] = std::cos((2 * x + 1) * u * M_PI / 16);
        return c;
    }();
    std::array<int, 64> q{};
    for (std::size_t v = 0; v < 8; ++v)
        for (std::size_t u = 0; u < 8; ++u) {
            double sum = 0;
            for (std::size_t y = 0; y < 8; ++y)
                for (std::size_t x = 0; x < 8; ++x) sum += block[y * 8 + x] * cosine[u][x] * cosine[v][y];
            const double cu = u == 0 ? M_SQRT1_2 : 1.0, cv = v == 0 ? M_SQRT1_2 : 1.0;
            const std::size_t at = v * 8 + u;
            q[at] = static_cast<int>(std::lround(0.25 * cu * cv * sum / quant[at]));
        }
    const int dc_value = q[0];
    encode_value(w, dc_value - previous_dc, dc, 0);
    previous_dc = dc_value;
    int run = 0;
    for (std::size_t i = 1; i < 64; ++i) {
        const int v = q[kZigzag[i]];
        if (v == 0) {
            ++run;
            continue;
        }
        while (run > 15) {
            w.put(ac.code[0xF0], ac.length[0xF0]);
            run -= 16;
        }
        encode_value(w, v, ac, run);
        run = 0;
    }
    if (run) w.put(ac.code[0x00], ac.length[0x00]);  // end of block
}

// ---- PNG and ZIP helpers -------------------------------------------------------------------------

void png_chunk(std::string &out, const char *type, const std::string &data) {
    append_be32(out, static_cast<uint32_t>(data.size()));
    const std::string typed = std::string(type, 4) + data;
    out += typed;
    append_be32(out, zlib_crc32(typed));
}

uint32_t adler32(const std::string &bytes) {
    uint32_t a = 1, b = 0;
    for (unsigned char c : bytes) {
        a = (a + c) % 65521;
        b = (b + a) % 65521;
    }
    return b << 16 | a;
}

// A zlib stream of stored (uncompressed) deflate blocks.
std::string zlib_stored(const std::string &data) {
    std::string out = "\x78\x01";
    std::size_t at = 0;
    do {
        const std::size_t n = std::min<std::size_t>(65535, data.size() - at);
        const bool last = at + n == data.size();
        out.push_back(last ? 1 : 0);
        append_u16(out, static_cast<uint32_t>(n));
        append_u16(out, static_cast<uint32_t>(~n & 0xFFFF));
        out.append(data, at, n);
        at += n;
    } while (at < data.size());
    append_be32(out, adler32(data));
    return out;
}

std::string fourcc(const char *c) { return std::string(c, 4); }

std::string riff_chunk(const char *id, const std::string &data) {
    std::string out = fourcc(id);
    append_u32(out, static_cast<uint32_t>(data.size()));
    out += data;
    if (data.size() % 2) out.push_back('\0');
    return out;
}

}  // namespace

uint32_t zlib_crc32(const std::string &bytes) {
    return get_crc32(bytes.data(), static_cast<uint32_t>(bytes.size()), 0xFFFFFFFFu) ^ 0xFFFFFFFFu;
}

Picture test_picture(int width, int height, unsigned seed) {
    Picture p{width, height, std::vector<uint8_t>(static_cast<std::size_t>(width * height * 3))};
    const double hue = (seed % 7) / 7.0 * 2 * M_PI;
    const double cx = width * (0.3 + 0.4 * ((seed * 37) % 11) / 10.0), cy = height * 0.55;
    const double radius = std::min(width, height) * 0.22;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double t = static_cast<double>(y) / height;
            double r = 128 + 100 * std::sin(hue + t * 3), g = 128 + 100 * std::sin(hue + 2 + t * 3),
                   b = 128 + 100 * std::sin(hue + 4 + t * 3);
            if (std::hypot(x - cx, y - cy) < radius) r = 250, g = 220 - 20.0 * (seed % 5), b = 90;
            const std::size_t at = static_cast<std::size_t>((y * width + x) * 3);
            p.rgb[at] = clamp_byte(r);
            p.rgb[at + 1] = clamp_byte(g);
            p.rgb[at + 2] = clamp_byte(b);
        }
    return p;
}

std::string jpeg(const Picture &picture, int quality) {
    const auto luma_q = scaled_table(kLumaQuant, quality);
    const auto chroma_q = scaled_table(kChromaQuant, quality);
    std::string out = "\xFF\xD8";
    put_marker_segment(out, 0xE0, std::string("JFIF\0\x01\x01\0\0\x01\0\x01\0\0", 14));
    for (int t = 0; t < 2; ++t) {
        std::string body(1, static_cast<char>(t));
        for (std::size_t i = 0; i < 64; ++i) body.push_back(static_cast<char>((t ? chroma_q : luma_q)[kZigzag[i]]));
        put_marker_segment(out, 0xDB, body);
    }
    std::string frame = "\x08";
    append_be16(frame, static_cast<uint32_t>(picture.height));
    append_be16(frame, static_cast<uint32_t>(picture.width));
    frame += std::string("\x03\x01\x11\x00\x02\x11\x01\x03\x11\x01", 10);
    put_marker_segment(out, 0xC0, frame);
    put_marker_segment(out, 0xC4, huffman_segment(0, 0, kDcLuma));
    put_marker_segment(out, 0xC4, huffman_segment(1, 0, kAcLuma));
    put_marker_segment(out, 0xC4, huffman_segment(0, 1, kDcChroma));
    put_marker_segment(out, 0xC4, huffman_segment(1, 1, kAcChroma));
    put_marker_segment(out, 0xDA, std::string("\x03\x01\x00\x02\x11\x03\x11\x00\x3F\x00", 10));

    const HuffmanCode dc_luma(kDcLuma), ac_luma(kAcLuma), dc_chroma(kDcChroma), ac_chroma(kAcChroma);
    BitWriter w(out);
    int previous[3] = {0, 0, 0};
    for (int by = 0; by < picture.height; by += 8)
        for (int bx = 0; bx < picture.width; bx += 8) {
            std::array<std::array<double, 64>, 3> blocks{};
            for (int y = 0; y < 8; ++y)
                for (int x = 0; x < 8; ++x) {
                    const int px = std::min(bx + x, picture.width - 1), py = std::min(by + y, picture.height - 1);
                    const std::size_t at = static_cast<std::size_t>((py * picture.width + px) * 3);
                    const double r = picture.rgb[at], g = picture.rgb[at + 1], b = picture.rgb[at + 2];
                    const std::size_t i = static_cast<std::size_t>(y * 8 + x);
                    blocks[0][i] = 0.299 * r + 0.587 * g + 0.114 * b - 128;
                    blocks[1][i] = -0.168736 * r - 0.331264 * g + 0.5 * b;
                    blocks[2][i] = 0.5 * r - 0.418688 * g - 0.081312 * b;
                }
            encode_block(w, blocks[0], luma_q, dc_luma, ac_luma, previous[0]);
            encode_block(w, blocks[1], chroma_q, dc_chroma, ac_chroma, previous[1]);
            encode_block(w, blocks[2], chroma_q, dc_chroma, ac_chroma, previous[2]);
        }
    w.flush();
    out += "\xFF\xD9";
    return out;
}

std::string png(const Picture &picture) {
    std::string out = "\x89PNG\r\n\x1a\n";
    std::string header;
    append_be32(header, static_cast<uint32_t>(picture.width));
    append_be32(header, static_cast<uint32_t>(picture.height));
    header += std::string("\x08\x02\x00\x00\x00", 5);  // 8-bit RGB, no interlace
    png_chunk(out, "IHDR", header);
    std::string raw;
    const std::size_t row = static_cast<std::size_t>(picture.width * 3);
    for (int y = 0; y < picture.height; ++y) {
        raw.push_back('\0');  // filter: none
        raw.append(reinterpret_cast<const char *>(picture.rgb.data()) + static_cast<std::size_t>(y) * row, row);
    }
    png_chunk(out, "IDAT", zlib_stored(raw));
    png_chunk(out, "IEND", "");
    return out;
}

std::string wav(const std::vector<double> &notes, int note_ms) {
    constexpr uint32_t kRate = 8000;
    std::string samples;
    for (const double hz : notes) {
        const int n = static_cast<int>(kRate) * note_ms / 1000;
        for (int i = 0; i < n; ++i) {
            const double envelope = std::min(1.0, std::min(i, n - i) / 200.0);
            const double s = 0.4 * envelope * std::sin(2 * M_PI * hz * i / kRate);
            append_u16(samples, static_cast<uint32_t>(static_cast<int16_t>(s * 32767)) & 0xFFFF);
        }
    }
    std::string format;
    append_u16(format, 1);  // PCM
    append_u16(format, 1);  // mono
    append_u32(format, kRate);
    append_u32(format, kRate * 2);
    append_u16(format, 2);
    append_u16(format, 16);
    return riff_chunk("RIFF", fourcc("WAVE") + riff_chunk("fmt ", format) + riff_chunk("data", samples));
}

std::string avi(int width, int height, int frames, int fps, unsigned seed) {
    std::vector<std::string> pictures;
    for (int f = 0; f < frames; ++f) pictures.push_back(jpeg(test_picture(width, height, seed + static_cast<unsigned>(f)), 70));
    uint32_t largest = 0;
    for (const auto &p : pictures) largest = std::max(largest, static_cast<uint32_t>(p.size()));

    std::string avih;
    append_u32(avih, static_cast<uint32_t>(1000000 / fps));
    append_u32(avih, largest * static_cast<uint32_t>(fps));
    append_u32(avih, 0);
    append_u32(avih, 0x10);  // has an index
    append_u32(avih, static_cast<uint32_t>(frames));
    append_u32(avih, 0);
    append_u32(avih, 1);
    append_u32(avih, largest);
    append_u32(avih, static_cast<uint32_t>(width));
    append_u32(avih, static_cast<uint32_t>(height));
    avih.append(16, '\0');

    std::string strh = fourcc("vids") + fourcc("MJPG");
    strh.append(12, '\0');  // flags, priority, language, initial frames
    append_u32(strh, 1);
    append_u32(strh, static_cast<uint32_t>(fps));
    append_u32(strh, 0);
    append_u32(strh, static_cast<uint32_t>(frames));
    append_u32(strh, largest);
    append_u32(strh, 0xFFFFFFFF);
    append_u32(strh, 0);
    append_u16(strh, 0);
    append_u16(strh, 0);
    append_u16(strh, static_cast<uint32_t>(width));
    append_u16(strh, static_cast<uint32_t>(height));

    std::string strf;
    append_u32(strf, 40);
    append_u32(strf, static_cast<uint32_t>(width));
    append_u32(strf, static_cast<uint32_t>(height));
    append_u16(strf, 1);
    append_u16(strf, 24);
    strf += fourcc("MJPG");
    append_u32(strf, static_cast<uint32_t>(width * height * 3));
    strf.append(16, '\0');

    const std::string strl = fourcc("strl") + riff_chunk("strh", strh) + riff_chunk("strf", strf);
    const std::string hdrl = fourcc("hdrl") + riff_chunk("avih", avih) + riff_chunk("LIST", strl);

    std::string movi = fourcc("movi");
    std::string index;
    for (const auto &p : pictures) {
        index += fourcc("00dc");
        append_u32(index, 0x10);  // key frame
        append_u32(index, static_cast<uint32_t>(movi.size()));
        append_u32(index, static_cast<uint32_t>(p.size()));
        movi += riff_chunk("00dc", p);
    }
    return riff_chunk("RIFF", fourcc("AVI ") + riff_chunk("LIST", hdrl) + riff_chunk("LIST", movi) +
                                  riff_chunk("idx1", index));
}

std::string pdf(const std::vector<std::string> &lines) {
    std::string content = "BT /F1 14 Tf 72 760 Td 18 TL\n";
    for (const auto &line : lines) {
        std::string escaped;
        for (char c : line) {
            if (c == '(' || c == ')' || c == '\\') escaped.push_back('\\');
            escaped.push_back(c);
        }
        content += "(" + escaped + ") Tj T*\n";
    }
    content += "ET\n";
    const std::vector<std::string> objects = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 4 0 R "
        "/Resources << /Font << /F1 5 0 R >> >> >>",
        "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "endstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
    };
    std::string out = "%PDF-1.4\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(out.size());
        out += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::size_t xref = out.size();
    out += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (const std::size_t o : offsets) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", o);
        out += entry;
    }
    out += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(xref) + "\n%%EOF\n";
    return out;
}

std::string zip(const std::vector<std::pair<std::string, std::string>> &files) {
    std::string out, directory;
    for (const auto &[name, data] : files) {
        const uint32_t crc = zlib_crc32(data);
        const auto size = static_cast<uint32_t>(data.size());
        const auto offset = static_cast<uint32_t>(out.size());
        auto common = [&](std::string &s) {
            append_u16(s, 10);  // version needed
            append_u16(s, 0);   // flags
            append_u16(s, 0);   // stored
            append_u16(s, 0);   // time
            append_u16(s, 0x58C1);  // 2024-06-01
            append_u32(s, crc);
            append_u32(s, size);
            append_u32(s, size);
            append_u16(s, static_cast<uint32_t>(name.size()));
            append_u16(s, 0);
        };
        append_u32(out, 0x04034b50);
        common(out);
        out += name + data;
        append_u32(directory, 0x02014b50);
        append_u16(directory, 20);  // made by
        common(directory);
        append_u16(directory, 0);  // comment
        append_u16(directory, 0);  // disk
        append_u16(directory, 0);  // internal attributes
        append_u32(directory, 0);  // external attributes
        append_u32(directory, offset);
        directory += name;
    }
    const auto directory_offset = static_cast<uint32_t>(out.size());
    out += directory;
    append_u32(out, 0x06054b50);
    append_u16(out, 0);
    append_u16(out, 0);
    append_u16(out, static_cast<uint32_t>(files.size()));
    append_u16(out, static_cast<uint32_t>(files.size()));
    append_u32(out, static_cast<uint32_t>(directory.size()));
    append_u32(out, directory_offset);
    append_u16(out, 0);
    return out;
}

}  // namespace wrenlink::sample
