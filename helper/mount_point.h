// The folder that a volume is mounted at: chosen, checked, made when it is not
// there, and removed again when it was made here.
#pragma once

#include <string>

#include "helper/descriptor.h"
#include "helper/devices.h"
#include "helper/messages.h"

namespace helper
{

// The folder in which folders for volumes are made: `wanted` if not empty, the
// media folder of the user's session where there is one, else the home.
std::string mountHome(const std::string &wanted);

// A folder for the device in `home`, named after it; with a number behind the
// name when that is taken.
std::string defaultPoint(const Device &device, const std::string &home);

// Canonical but for its last name, which may be missing and may be a volume.
std::string canonicalPoint(const std::string &path);

// Held while a folder is prepared and mounted on, by one quorvel of a user at a
// time: two of them must not mount the same device, or take the same folder.
// False when another one holds it for longer than `seconds`.
bool takeMountTurn(Descriptor &turn, double seconds);

// Makes the folder unless it is there, and makes sure that a volume may be
// mounted on it. *made tells whether it was made.
Result preparePoint(const std::string &point, bool *made);

// Removes a folder that `preparePoint` made, in this process or an earlier one,
// once nothing is mounted on it and it is empty. Any other is left alone.
void removeMadePoint(const std::string &point);

} // namespace helper
