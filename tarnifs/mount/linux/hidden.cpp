#include "tarnifs/mount/linux/hidden.h"

#include <thread>
#include <unordered_map>

namespace
{

std::optional<HiddenFile> latest;
std::thread::id latest_thread;

// Hidden name -> the name that the file got back.
std::unordered_map<std::string, std::string> restored;

} // namespace

void NoteHidden(const HiddenFile &file)
{
    latest = file;
    latest_thread = std::this_thread::get_id();
}

void NoteLookup(const std::string &path)
{
    if (latest && latest->asked == path) {
        latest.reset();
    }
}

std::optional<HiddenFile> TakeHidden(const std::string &path)
{
    std::optional<HiddenFile> file;
    if (latest && latest->asked == path &&
        latest_thread == std::this_thread::get_id()) {
        file = latest;
    }
    latest.reset();
    return file;
}

void NoteRestored(const HiddenFile &file)
{
    restored[file.asked_hidden] = file.original;
}

std::string RestoredName(const std::string &path)
{
    const auto entry = restored.find(path);
    return entry == restored.end() ? path : entry->second;
}

bool ForgetRestored(const std::string &hidden)
{
    return restored.erase(hidden) != 0;
}
