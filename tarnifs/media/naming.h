// Names of media items: how titles become names that the host can show, and how
// two of one name are told apart. Nothing here asks the device.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

// Longest name a host takes, in bytes of its decomposed form.
constexpr size_t LONGEST_NAME = 255;

// The canonical form of a text (composed, "/" as ":"). False, after a log line
// in `caller`'s name, for text that is no valid UTF-8.
bool CanonicalName(const char *caller, const std::string &text,
                   std::string *out);

// An album's name: decomposed, or canonical where that fails. False as above.
bool AlbumName(const char *caller, const std::string &title, std::string *out);

// Takes an incomplete character off the end, which a cut in bytes may leave.
void DropBrokenTail(std::string *text);

// Whether a folder can have an entry of this name; one that can't be is logged
// in `caller`'s name.
bool CanBeEntry(const char *caller, const std::string &name);

// Whether a path has a component "..", which leads out of where it begins.
bool LeadsOut(std::string_view path);

// The film beside a live photo's still, for a device path or a name: a ".HEIC"
// (in any case) becomes ".MOV", in anything else every "JPG" becomes "MOV".
std::string FilmOf(const std::string &still);

enum class NUMBER_PLACE { BEFORE_EXTENSION, AT_END };

// `name` with `number` (" (2)", or nothing) put before its last "." or at its
// end, cut at a character so that the whole is no longer than LONGEST_NAME.
// Number and extension are kept.
std::string NumberedName(std::string_view name, std::string_view number,
                         NUMBER_PLACE place);

// Gives out the names of one folder while it is listed.
class FreeNames
{
  public:
    explicit FreeNames(std::string path) : folder(std::move(path)) {}

    // The volume path for an entry `name`: with the name as it is, or with
    // the first number from 2 on for which the catalogue has no record. One
    // that is in no folder's list and stands for the same `devicePath` (empty:
    // a folder) is what an unfinished listing left, and is found again.
    std::string path(const std::string &name, NUMBER_PLACE place,
                     const std::string &devicePath = {});

  private:
    std::string folder;
    // Numbers below are taken; what is listed stays until the listing ends.
    std::unordered_map<std::string, int> numbers;
};
