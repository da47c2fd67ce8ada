// Where a volume path lies on the device. The only place that knows.
#pragma once

#include <string>
#include <string_view>

constexpr std::string_view STORAGE_AREA = "/Storage";
constexpr std::string_view APPS_AREA = "/Apps";
constexpr std::string_view MEDIA_AREA = "/Media";
constexpr const char *STORAGE_ROOT = "/general_storage";

// Plain prefix test, as the areas are told apart: "/Storagex" is "/Storage" too.
bool BeginsWith(std::string_view path, std::string_view prefix);

// Storage area: "/Storage/a" is "/general_storage/a" on the media file system.
std::string StorageDevicePath(std::string_view path);

// Apps area: "/Apps/Notes/a" is "/Documents/a" in the app's sandbox. Which app
// that is tells the record's app_id, not the folder's name.
std::string AppDevicePath(std::string_view path);

// The app folder's name in a path of the apps area ("Notes" above), at most 511
// bytes; for messages. Empty for any other path.
std::string AppFolderName(std::string_view path);

// Number of "/" in a path: one inside an app folder has more than 2.
size_t PathDepth(std::string_view path);

// The text before the last "/", "/" when that is empty. For messages.
std::string ParentFolderText(std::string_view path);

// A child's path; the root's children have no second "/".
std::string ChildPath(std::string_view folder, std::string_view name);
