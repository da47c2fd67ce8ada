// AFC packets: a 40-byte little-endian header (magic, entire length, length up
// to the bulk data, packet number, operation), a fixed part, and bulk data.
// Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace iusb
{

enum class AfcOp : uint64_t {
    Status = 0x01,
    Data = 0x02,
    ReadDir = 0x03,
    RemovePath = 0x08,
    MakeDir = 0x09,
    GetFileInfo = 0x0A,
    GetDeviceInfo = 0x0B,
    FileRefOpen = 0x0D,
    FileRefOpenResult = 0x0E,
    FileRefRead = 0x0F,
    FileRefWrite = 0x10,
    FileRefSeek = 0x11,
    FileRefTell = 0x12,
    FileRefTellResult = 0x13,
    FileRefClose = 0x14,
    FileRefSetFileSize = 0x15,
    RenamePath = 0x18,
};

constexpr size_t kAfcHeaderSize = 40;

struct AfcHeader {
    uint64_t entire = 0; // header, fixed part and bulk data
    uint64_t fixed = 0;  // header and fixed part
    uint64_t packet = 0;
    AfcOp op{};

    uint64_t payload() const { return entire - kAfcHeaderSize; }
};

// Appends a 64-bit little-endian number; reads one.
void putLe64(std::string &out, uint64_t value);
uint64_t getLe64(const char *bytes);

// Appends a request's header and fixed part; `bulk` bytes are to follow it.
void afcAppendRequest(std::string &out, AfcOp op, uint64_t packet,
                      std::string_view fixed, uint64_t bulk);

// Reads the 40 bytes of a header. Nothing for a wrong magic or for lengths that
// contradict each other.
std::optional<AfcHeader> afcParseHeader(const char *bytes);

// Fixed parts. Strings are sent with their NUL.
std::string afcPath(std::string_view path);
std::string afcTwoPaths(std::string_view from, std::string_view to);
std::string afcNumbers(std::initializer_list<uint64_t> values);
std::string afcOpenRequest(uint64_t mode, std::string_view path);

} // namespace iusb
