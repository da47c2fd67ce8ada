// What is mounted: the kernel's table tells where, and the command line of the
// process behind a volume which device it serves.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace helper
{

struct Mount {
    std::string point;
    uid_t owner = 0;
    pid_t server = 0;      // 0: not found, the process may be gone
    uint32_t location = 0; // 0: not known
};

// Our volumes of all users that can be seen.
std::vector<Mount> readMounts();

// The mount of a location, or nullptr.
const Mount *findMount(const std::vector<Mount> &mounts, uint32_t location);

// Whether anything, ours or not, is mounted exactly there. The path must be
// canonical.
bool isMountPoint(const std::string &path);

// The lines of a mountinfo table that are ours (location and server not set).
std::vector<Mount> parseMountTable(std::string_view table);

// The location id on a file system's command line (words ended by NUL) that
// mounted at `point`; false when it is the command line of something else.
bool parseServerCommand(std::string_view command, const std::string &point,
                        uint32_t &location);

// How a volume answers.
enum class Answer { Well, NotStarted, Silent, Broken };

struct VolumeState {
    Answer answer = Answer::Silent;
    int error = 0; // errno when broken
    uint64_t total = 0;
    uint64_t free = 0;
};

// Asks the volume, `seconds` at most. One whose start-up failed says so.
VolumeState askVolume(const std::string &point, double seconds);

// Whether the volume's file system has ended without being unmounted: every
// access to its folder fails at once.
bool hasDied(const Mount &mount);

} // namespace helper
