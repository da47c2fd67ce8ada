// The attached devices, as the device layer tells them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "device/libiusb.h"
#include "helper/messages.h"

namespace helper
{

// Whether a device lets this computer in, as far as can be told without asking
// its user.
enum class Trust { Yes, No, Unknown };

struct Device {
    std::string udid;
    std::string name; // the UDID when the device does not tell
    std::string kind; // "iPhone"
    std::string product;
    std::string version;
    uint32_t location = 0;
    uint32_t plug = 0; // another number at each plugging in
    int state = 0;     // why name and version are missing
    Trust trust = Trust::Unknown;
};

// A library context that ends with the record.
class Library
{
  public:
    Library();
    ~Library();
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    // The devices on a cable, of the last call of `list`.
    Result list(std::vector<libiusb_device *> &found);

  private:
    libiusb_context *context = nullptr;
};

// What the list alone tells of a device.
libiusb_device_info placeOf(libiusb_device *listed);

// What is known of a listed device; a silent one costs about two seconds.
Device describe(libiusb_device *listed);

// What devices are asked when they are listed.
enum class Ask {
    Nothing, // only what the list has: UDID and place
    Names,   // and whatever else describes them
    Trust,   // and whether they trust this computer; their prompt is not raised
};

// The devices on a cable.
Result listDevices(std::vector<Device> &devices, Ask ask = Ask::Names);

// The device that `text` means: its name, its UDID or a unique beginning of it,
// or its location id. An empty text means the only device.
Result chooseDevice(const std::vector<Device> &devices, const std::string &text,
                    Device &chosen);
// Whether `text` may mean the device; an exact meaning goes before a beginning.
bool meansExactly(const Device &device, const std::string &text);

// Opens the device with this UDID, calls `use` and closes it. The code of
// finding and opening it, or what `use` gives. Raises the device's trust prompt
// when it does not know this computer.
int withOpenDevice(const std::string &udid,
                   const std::function<int(libiusb_device *)> &use);

// The sentence for a code of the device layer.
Result explain(int code, const std::string &name);

} // namespace helper
