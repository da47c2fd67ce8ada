// Messages of the usbmux protocol: a header of four 32-bit numbers, least
// significant byte first, and an XML property list.
#pragma once

#include "simdevice/plist.h"
#include "simdevice/simulator.h"

namespace sim
{

constexpr uint32_t kUsbmuxHeaderSize = 16;
constexpr uint32_t kUsbmuxPlistVersion = 1; // 0: binary, not spoken here
constexpr uint32_t kUsbmuxResult = 1;       // message kinds
constexpr uint32_t kUsbmuxPlist = 8;

struct UsbmuxHeader {
    uint32_t length = 0; // with the header
    uint32_t version = 0;
    uint32_t message = 0;
    uint32_t tag = 0; // chosen by the client, repeated in the answer
};

// Header and payload in one piece: clients read the header with one call.
std::string usbmuxFrame(uint32_t version, uint32_t message, uint32_t tag,
                        const std::string &payload);
std::string plistFrame(uint32_t tag, const Plist &list);

// What a broken daemon, or something that is none, would answer: one of the
// kinds of the control command "usbmux-nonsense".
std::string nonsenseFrame(const std::string &kind, uint32_t tag);

// A device as the list and the event of its arrival describe it. Called with
// Simulator::mutex held.
Plist attachedMessage(const Device &device, bool wifi);

} // namespace sim
