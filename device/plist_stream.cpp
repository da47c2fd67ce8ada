#include "device/plist_stream.h"

#include "device/libiusb.h"

namespace iusb
{

constexpr size_t kHeadSize = 4;

std::string plistEncode(const Plist &message)
{
    std::string body = toXml(message);
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>(body.size() >> shift & 0xFF));
    return out + body;
}

std::optional<size_t> plistMessageSize(std::string_view head)
{
    size_t size = 0;
    if (head.size() < kHeadSize)
        return std::nullopt;
    for (size_t i = 0; i < kHeadSize; i++)
        size = size << 8 | static_cast<uint8_t>(head[i]);
    if (size == 0 || size > kPlistMaxMessage)
        return std::nullopt;
    return size;
}

int plistSend(Stream &stream, const Plist &message, Deadline deadline)
{
    std::string bytes = plistEncode(message);
    return streamSendAll(stream, bytes.data(), bytes.size(), deadline);
}

int plistReceive(Stream &stream, Plist &message, Deadline deadline)
{
    char head[kHeadSize];
    int code = streamReceiveAll(stream, head, sizeof head, deadline);
    if (code)
        return code;
    auto size = plistMessageSize({head, sizeof head});
    if (!size)
        return LIBIUSB_ERROR_PROTOCOL;
    std::string body(*size, '\0');
    code = streamReceiveAll(stream, body.data(), body.size(), deadline);
    if (code)
        return code;
    message = parsePlist(body);
    return message ? 0 : LIBIUSB_ERROR_PROTOCOL;
}

} // namespace iusb
