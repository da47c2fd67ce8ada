// Makes sample device folders.
#pragma once

#include "simdevice/device_folder.h"

namespace sim
{

struct SampleOptions {
    Identity identity;
    uint32_t apps = 4;
    uint32_t photos = 12; // plain ones, beside those that are always there
    uint32_t songs = 0;   // the same
    bool cloud = false;   // originals are in the cloud, some of them only there
};

// Makes a device in `folder`, which must not exist or be empty. The same
// options give the same bytes, names and times. Empty, or what is wrong in
// words for the user.
std::string makeSample(const std::string &folder, SampleOptions options);

// Fills the version, build, model and class that belong together for an iOS
// version like "17.5.1". False if it does not look like one.
bool setIosVersion(Identity &identity, const std::string &version);

} // namespace sim
