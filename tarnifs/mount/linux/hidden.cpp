#include "tarnifs/mount/linux/hidden.h"

#include <thread>
#include <unordered_map>

namespace
{

// By the name that was asked with: what a thread put out of the way just now.
struct Latest {
    HiddenFile file;
    std::thread::id thread;
};
std::unordered_map<std::string, Latest> latest;

// By hidden name.
std::unordered_map<std::string, ReplacedFile> unsettled;

// Hidden name -> the name that the file got back.
std::unordered_map<std::string, std::string> restored;

} // namespace

void NoteHidden(const HiddenFile &file)
{
    latest[file.asked] = {file, std::this_thread::get_id()};
}

void NoteLookup(const std::string &path)
{
    latest.erase(path);
}

std::optional<HiddenFile> TakeHidden(const std::string &path)
{
    const auto entry = latest.find(path);
    if (entry == latest.end()) {
        return std::nullopt;
    }
    const Latest found = entry->second;
    latest.erase(entry);
    return found.thread == std::this_thread::get_id()
               ? std::optional(found.file)
               : std::nullopt;
}

void NoteUnsettled(const ReplacedFile &file)
{
    unsettled[file.file.asked_hidden] = file;
}

std::optional<ReplacedFile> UnsettledOf(const std::string &hidden)
{
    const auto entry = unsettled.find(hidden);
    return entry == unsettled.end() ? std::nullopt
                                    : std::optional(entry->second);
}

void ForgetUnsettled(const std::string &hidden)
{
    unsettled.erase(hidden);
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
    std::erase_if(latest, [&hidden](const auto &entry) {
        return entry.second.file.asked_hidden == hidden;
    });
    return restored.erase(hidden) != 0;
}
