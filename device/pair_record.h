// What pairing left behind: the host's identity towards one device. The record
// is kept by the usbmux daemon and read through it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace iusb
{

struct PairRecord {
    std::string host_id;
    std::string system_buid; // may be missing; the daemon knows it too
    // PEM; empty in records that were made for devices without TLS.
    std::string certificate;
    std::string private_key;
};

// Reads an XML or binary record. Nothing without a host id: of no use then.
std::optional<PairRecord> parsePairRecord(std::string_view bytes);

} // namespace iusb
