// What a volume path says by itself, without a look at catalogue or device.
#pragma once

#include <string>
#include <string_view>

// A path's last component.
std::string LeafOf(const std::string &path);

// Whether `path` is `folder` or lies below it.
bool IsWithin(std::string_view path, std::string_view folder);

// `path`, which lies within `from`, as it is called once `from` has become `to`.
std::string Moved(const std::string &path, const std::string &from,
                  const std::string &to);

// Whether a new name at the top level is refused without asking a handler:
// "/.Trash-1000" and the like, and "/Storagex", which the handlers, with their
// plain prefix tests, would make beside the storage folder on the device.
bool IsRefusedAtTop(std::string_view path);

// Whether files at this path may be changed: below "/Storage" and below the
// folder of an app.
bool IsWritablePlace(std::string_view path);

// Whether the last component is a name that libfuse gives to a file that was
// removed while open.
bool IsFuseHidden(const std::string &path);
