// The framing of lockdown, house arrest and the installation proxy: a 4-byte
// big-endian length and a property list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "device/plist_tools.h"
#include "device/stream.h"

namespace iusb
{

// Far above any real message; the app list, which is long, comes in chunks.
constexpr size_t kPlistMaxMessage = 16U << 20;

// A message as bytes.
std::string plistEncode(const Plist &message);

// The size that a 4-byte head announces; nothing when it is out of bounds.
std::optional<size_t> plistMessageSize(std::string_view head);

// Sends or receives one message. LOST_CONNECTION when the stream ends or stays
// silent; PROTOCOL when what came is no message: the stream is out of step then
// and of no more use.
int plistSend(Stream &stream, const Plist &message, Deadline deadline);
int plistReceive(Stream &stream, Plist &message, Deadline deadline);

} // namespace iusb
