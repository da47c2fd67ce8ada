// AFC packets: a header of 40 bytes, the fixed part, then bulk data. All
// numbers are 64-bit, least significant byte first.
#pragma once

#include <cstdint>
#include <string>

namespace sim
{

constexpr size_t kAfcHeaderSize = 40;

enum AfcOperation : uint64_t {
    kAfcStatus = 0x01,
    kAfcData = 0x02,
    kAfcReadDir = 0x03,
    kAfcReadFile = 0x04,
    kAfcTruncateFile = 0x07,
    kAfcRemovePath = 0x08,
    kAfcMakeDir = 0x09,
    kAfcGetFileInfo = 0x0A,
    kAfcGetDeviceInfo = 0x0B,
    kAfcFileRefOpen = 0x0D,
    kAfcFileRefOpenResult = 0x0E,
    kAfcFileRefRead = 0x0F,
    kAfcFileRefWrite = 0x10,
    kAfcFileRefSeek = 0x11,
    kAfcFileRefTell = 0x12,
    kAfcFileRefTellResult = 0x13,
    kAfcFileRefClose = 0x14,
    kAfcFileRefSetFileSize = 0x15,
    kAfcGetConnectionInfo = 0x16,
    kAfcRenamePath = 0x18,
    kAfcSetFsBlockSize = 0x19,
    kAfcSetSocketBlockSize = 0x1A,
    kAfcFileRefLock = 0x1B,
    kAfcMakeLink = 0x1C,
    kAfcGetFileHash = 0x1D,
    kAfcSetFileModTime = 0x1E,
    kAfcGetSizeOfPathContents = 0x21,
    kAfcRemovePathAndContents = 0x22,
};

enum AfcStatusCode : uint64_t {
    kAfcSuccess = 0,
    kAfcUnknownError = 1, // also: folder not empty
    kAfcNoResources = 3,
    kAfcReadError = 4, // also: not a folder
    kAfcUnknownPacket = 6,
    kAfcInvalidArgument = 7,
    kAfcObjectNotFound = 8,
    kAfcObjectIsDir = 9,
    kAfcPermissionDenied = 10,
    kAfcTooMuchData = 13,
    kAfcNotSupported = 15,
    kAfcObjectExists = 16,
    kAfcObjectBusy = 17,
    kAfcNoSpaceLeft = 18,
    kAfcWouldBlock = 19,
    kAfcIoError = 20,
};

struct AfcHeader {
    uint64_t entireLength = 0;
    uint64_t thisLength = 0;
    uint64_t packet = 0;
    uint64_t operation = 0;
};

// False if the magic or the lengths cannot be those of a request: the
// connection is of no use then.
bool decodeAfcHeader(const uint8_t *bytes, AfcHeader &header);

void encodeAfcHeader(const AfcHeader &header, uint8_t *bytes);

// The number at `offset` of a fixed part that was checked to reach so far.
uint64_t afcNumber(const std::string &fixed, size_t offset);
std::string afcNumberBytes(uint64_t number);

// The text from `offset` to the next NUL or the end; empty beyond the end.
std::string afcText(const std::string &fixed, size_t offset);

// The status for a host error number.
uint64_t afcStatusOf(int error);

} // namespace sim
