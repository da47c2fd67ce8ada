// Names that begin with "." and show in listings, because they were made here (or
// stood in the way of a removal). Renaming a folder lists it anew from the
// device, and such a listing leaves them out: they are carried over. All
// functions are called with the gate held.
#pragma once

#include <string>
#include <vector>

// The paths, relative to `folder` and beginning with "/", of such names below it;
// folders before what is in them.
std::vector<std::string> ShownDotNames(const std::string &folder);

// Lets them show below `folder`, as far as the device has them there.
void ShowDotNames(const std::string &folder,
                  const std::vector<std::string> &names);
