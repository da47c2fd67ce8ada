#include "simdevice/media_bytes.h"

#include <algorithm>
#include <array>

#include "simdevice/jpeg.h"

namespace sim
{

namespace
{

constexpr unsigned kPngWidth = 160;
constexpr unsigned kPngHeight = 120;

// MPEG 1 layer III, 128 kbit/s, 44.1 kHz; a frame that is zero after its header
// decodes to silence.
constexpr std::string_view kMp3Header = "\xFF\xFB\x90\xC4";
constexpr size_t kMp3Frame = 417;

std::string bigEndian(uint32_t value)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift & 0xFF);
    }
    return bytes;
}

constexpr std::array<uint32_t, 256> makeCrcTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); i++) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; bit++) {
            value = (value & 1) != 0 ? 0xEDB88320 ^ value >> 1 : value >> 1;
        }
        table[i] = value;
    }
    return table;
}

uint32_t crc32(std::string_view bytes)
{
    static constexpr std::array<uint32_t, 256> table = makeCrcTable();
    uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc = table[(crc ^ static_cast<uint8_t>(byte)) & 0xFF] ^ crc >> 8;
    }
    return ~crc;
}

uint32_t adler32(std::string_view bytes)
{
    uint32_t low = 1;
    uint32_t high = 0;
    for (const char byte : bytes) {
        low = (low + static_cast<uint8_t>(byte)) % 65521;
        high = (high + low) % 65521;
    }
    return high << 16 | low;
}

std::string pngChunk(const std::string &type, const std::string &body)
{
    return bigEndian(static_cast<uint32_t>(body.size())) + type + body +
           bigEndian(crc32(type + body));
}

// A zlib stream of one block that is stored as it is.
std::string zlibStored(const std::string &bytes)
{
    using namespace std::string_literals;
    const size_t size = bytes.size();
    std::string out = "\x78\x01\x01"s;
    for (const size_t length : {size, ~size}) {
        out += static_cast<char>(length & 0xFF);
        out += static_cast<char>(length >> 8 & 0xFF);
    }
    return out + bytes + bigEndian(adler32(bytes));
}

// Black and white stripes whose width depends on `number`.
std::string makePng(uint32_t number)
{
    using namespace std::string_literals;
    const uint32_t width = 2 + number % 13;
    std::string lines;
    for (uint32_t y = 0; y < kPngHeight; y++) {
        lines += '\0'; // no filter
        for (uint32_t x = 0; x < kPngWidth / 8; x++) {
            const bool light = (x + y / 8) / width % 2 == 0;
            lines += light ? '\xFF' : '\0';
        }
    }
    const std::string head = bigEndian(kPngWidth) + bigEndian(kPngHeight) +
                             "\x01\0\0\0\0"s; // one bit of grey
    return "\x89PNG\r\n\x1A\n"s + pngChunk("IHDR", head) +
           pngChunk("tEXt",
                    "Comment\0sample picture "s + std::to_string(number)) +
           pngChunk("IDAT", zlibStored(lines)) + pngChunk("IEND", "");
}

// A tag that names the number and fills up, then frames.
std::string makeMp3(uint32_t number, size_t size)
{
    using namespace std::string_literals;
    const std::string title = "\0sample sound "s + std::to_string(number);
    std::string tag = "TIT2"s + bigEndian(static_cast<uint32_t>(title.size())) +
                      "\0\0"s + title;
    size = std::max<size_t>(size, 600);
    const size_t frames = (size - 10 - tag.size()) / kMp3Frame;
    tag.resize(size - 10 - frames * kMp3Frame, '\0');
    // The tag's length has seven bits to a byte.
    const auto length = static_cast<uint32_t>(tag.size());
    std::string out = "ID3\x03\0\0\0\0"s;
    out += static_cast<char>(length >> 7 & 0x7F);
    out += static_cast<char>(length & 0x7F);
    out += tag;
    for (size_t i = 0; i < frames; i++) {
        out += kMp3Header;
        out.append(kMp3Frame - kMp3Header.size(), '\0');
    }
    return out;
}

struct Brand {
    std::string_view extension;
    const char *name;
};

constexpr Brand kBrands[] = {
    {"heic", "heic"}, {"mov", "qt  "}, {"mp4", "mp42"}, {"m4v", "M4V "},
    {"m4a", "M4A "},  {"m4b", "M4B "}, {"m4r", "M4A "},
};

std::string makeBoxes(std::string_view extension, uint32_t number, size_t size)
{
    using namespace std::string_literals;
    const char *name = "isom";
    for (const Brand &brand : kBrands) {
        name = brand.extension == extension ? brand.name : name;
    }
    std::string out =
        bigEndian(20) + "ftyp" + name + bigEndian(0) + std::string(name);
    const size_t rest = std::max<size_t>(size, 64) - out.size();
    return out + bigEndian(static_cast<uint32_t>(rest)) + "mdat" +
           noise(number, rest - 8);
}

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    for (char &letter : lower) {
        if (letter >= 'A' && letter <= 'Z') {
            letter = static_cast<char>(letter - 'A' + 'a');
        }
    }
    return lower;
}

} // namespace

std::string noise(uint64_t seed, uint64_t size)
{
    std::string bytes;
    bytes.reserve(size + 8);
    uint64_t state = seed;
    while (bytes.size() < size) {
        state += 0x9E3779B97F4A7C15;
        uint64_t word = state;
        word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9;
        word = (word ^ (word >> 27)) * 0x94D049BB133111EB;
        word ^= word >> 31;
        for (int i = 0; i < 64; i += 8) {
            bytes.push_back(static_cast<char>(word >> i & 0xFF));
        }
    }
    bytes.resize(size);
    return bytes;
}

std::string mediaBytes(std::string_view extension, uint32_t seed, uint32_t size)
{
    const std::string kind = lowerCase(extension);
    if (kind == "jpg") {
        return makeJpeg(seed);
    }
    if (kind == "png") {
        return makePng(seed);
    }
    return kind == "mp3" ? makeMp3(seed, size) : makeBoxes(kind, seed, size);
}

} // namespace sim
