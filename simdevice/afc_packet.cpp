#include "simdevice/afc_packet.h"

#include <endian.h>

#include <cerrno>
#include <cstring>

namespace sim
{

namespace
{

constexpr char kMagic[] = "CFA6LPAA";
constexpr size_t kMagicSize = 8;
constexpr uint64_t kMaxFixed = uint64_t{64} * 1024;
constexpr uint64_t kMaxEntire = uint64_t{1} << 40;

struct ErrorStatus {
    int error;
    uint64_t status;
};

constexpr ErrorStatus kErrorStatus[] = {
    {ENOENT, kAfcObjectNotFound},   {ENOTDIR, kAfcReadError},
    {EISDIR, kAfcObjectIsDir},      {EEXIST, kAfcObjectExists},
    {EACCES, kAfcPermissionDenied}, {EPERM, kAfcPermissionDenied},
    {EROFS, kAfcPermissionDenied},  {ELOOP, kAfcPermissionDenied},
    {ENOSPC, kAfcNoSpaceLeft},      {EDQUOT, kAfcNoSpaceLeft},
    {EMFILE, kAfcNoResources},      {ENFILE, kAfcNoResources},
    {EINVAL, kAfcInvalidArgument},  {EBADF, kAfcInvalidArgument},
    {EFBIG, kAfcTooMuchData},       {ENAMETOOLONG, kAfcInvalidArgument},
    {ENOTEMPTY, kAfcUnknownError},  {EBUSY, kAfcObjectBusy},
    {EWOULDBLOCK, kAfcWouldBlock},  {EIO, kAfcIoError},
};

} // namespace

bool decodeAfcHeader(const uint8_t *bytes, AfcHeader &header)
{
    uint64_t fields[4];
    std::memcpy(fields, bytes + kMagicSize, sizeof fields);
    header = {le64toh(fields[0]), le64toh(fields[1]), le64toh(fields[2]),
              le64toh(fields[3])};
    return std::memcmp(bytes, kMagic, kMagicSize) == 0 &&
           header.thisLength >= kAfcHeaderSize &&
           header.thisLength - kAfcHeaderSize <= kMaxFixed &&
           header.entireLength >= header.thisLength &&
           header.entireLength <= kMaxEntire;
}

void encodeAfcHeader(const AfcHeader &header, uint8_t *bytes)
{
    const uint64_t fields[] = {
        htole64(header.entireLength), htole64(header.thisLength),
        htole64(header.packet), htole64(header.operation)};
    std::memcpy(bytes, kMagic, kMagicSize);
    std::memcpy(bytes + kMagicSize, fields, sizeof fields);
}

uint64_t afcNumber(const std::string &fixed, size_t offset)
{
    uint64_t number = 0;
    std::memcpy(&number, fixed.data() + offset, sizeof number);
    return le64toh(number);
}

std::string afcNumberBytes(uint64_t number)
{
    const uint64_t little = htole64(number);
    std::string bytes(sizeof little, '\0');
    std::memcpy(bytes.data(), &little, sizeof little);
    return bytes;
}

std::string afcText(const std::string &fixed, size_t offset)
{
    if (offset >= fixed.size()) {
        return {};
    }
    const size_t end = fixed.find('\0', offset);
    return fixed.substr(offset, end == std::string::npos ? end : end - offset);
}

uint64_t afcStatusOf(int error)
{
    for (const ErrorStatus &entry : kErrorStatus) {
        if (entry.error == error) {
            return entry.status;
        }
    }
    return kAfcUnknownError;
}

} // namespace sim
