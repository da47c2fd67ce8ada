#include "device/afc_packet.h"

#include <cstring>

namespace iusb
{

static constexpr char kMagic[] = "CFA6LPAA";

void putLe64(std::string &out, uint64_t value)
{
    for (int shift = 0; shift < 64; shift += 8)
        out.push_back(static_cast<char>(value >> shift & 0xFF));
}

uint64_t getLe64(const char *bytes)
{
    uint64_t value = 0;
    for (int i = 8; i-- > 0;)
        value = value << 8 | static_cast<uint8_t>(bytes[i]);
    return value;
}

void afcAppendRequest(std::string &out, AfcOp op, uint64_t packet,
                      std::string_view fixed, uint64_t bulk)
{
    uint64_t fixed_length = kAfcHeaderSize + fixed.size();
    out.append(kMagic, 8);
    putLe64(out, fixed_length + bulk);
    putLe64(out, fixed_length);
    putLe64(out, packet);
    putLe64(out, static_cast<uint64_t>(op));
    out.append(fixed);
}

std::optional<AfcHeader> afcParseHeader(const char *bytes)
{
    if (memcmp(bytes, kMagic, 8) != 0)
        return std::nullopt;
    AfcHeader header;
    header.entire = getLe64(bytes + 8);
    header.fixed = getLe64(bytes + 16);
    header.packet = getLe64(bytes + 24);
    header.op = static_cast<AfcOp>(getLe64(bytes + 32));
    if (header.fixed < kAfcHeaderSize || header.entire < header.fixed)
        return std::nullopt;
    return header;
}

std::string afcPath(std::string_view path)
{
    std::string out(path);
    out.push_back('\0');
    return out;
}

std::string afcTwoPaths(std::string_view from, std::string_view to)
{
    return afcPath(from) + afcPath(to);
}

std::string afcNumbers(std::initializer_list<uint64_t> values)
{
    std::string out;
    for (uint64_t value : values)
        putLe64(out, value);
    return out;
}

std::string afcOpenRequest(uint64_t mode, std::string_view path)
{
    return afcNumbers({mode}) + afcPath(path);
}

} // namespace iusb
