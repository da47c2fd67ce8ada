#include "helper/mounts.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "helper/descriptor.h"
#include "helper/process.h"

namespace helper
{

namespace
{

constexpr std::string_view TYPE = "fuse.quorvelfs";
constexpr std::string_view PROGRAM = "quorvelfs";
constexpr double DEAD_SECONDS = 1;

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        parts.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

template <typename Number>
bool toNumber(std::string_view text, Number &value)
{
    const char *end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && at == end;
}

// The table writes blanks and the like as a backslash and three octal digits.
std::string unescape(std::string_view text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        const bool escaped =
            text[i] == '\\' && i + 3 < text.size() &&
            std::from_chars(text.data() + i + 1, text.data() + i + 4, value, 8)
                    .ptr == text.data() + i + 4;
        plain += escaped ? static_cast<char>(value) : text[i];
        i += escaped ? 3 : 0;
    }
    return plain;
}

uid_t ownerIn(std::string_view options)
{
    uid_t owner = 0;
    for (const std::string_view option : split(options, ',')) {
        if (option.starts_with("user_id=")) {
            toNumber(option.substr(8), owner);
        }
    }
    return owner;
}

// "" when it cannot be read: a process may end between its being listed and
// looked at.
std::string slurp(const std::string &path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    char piece[8192];
    ssize_t n = 0;
    while (file.open() && (n = read(file.get(), piece, sizeof(piece))) > 0) {
        text.append(piece, static_cast<size_t>(n));
    }
    return n < 0 ? "" : text;
}

// The path without links in its folder part: the last name is not looked at,
// since that would ask the volume.
std::string withoutLinks(const std::string &path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return path;
    }
    const std::string folder = slash == 0 ? "/" : path.substr(0, slash);
    const std::unique_ptr<char, decltype(&free)> real(
        realpath(folder.c_str(), nullptr), free);
    const std::string base = real != nullptr ? real.get() : folder;
    return (base == "/" ? "" : base) + path.substr(slash);
}

bool namesPoint(std::string_view word, const std::string &point)
{
    while (word.size() > 1 && word.ends_with('/')) {
        word.remove_suffix(1);
    }
    if (word.starts_with("./")) {
        word.remove_prefix(2);
    }
    if (word == point) {
        return true;
    }
    if (word.starts_with('/')) {
        return withoutLinks(std::string(word)) == point;
    }
    // Relative to a folder that is not known once the process is in the
    // background.
    return !word.empty() && !word.starts_with('-') &&
           point.ends_with("/" + std::string(word));
}

// What -o location_id= says, 0 without it. It counts when -devopt gives 0.
int64_t locationAmong(const std::vector<std::string_view> &words)
{
    constexpr std::string_view KEY = "location_id=";
    int64_t id = 0;
    for (std::string_view word : words) {
        if (word.starts_with("-o")) {
            word.remove_prefix(2);
        }
        for (const std::string_view option : split(word, ',')) {
            if (option.starts_with(KEY)) {
                toNumber(option.substr(KEY.size()), id);
            }
        }
    }
    return id;
}

void findServers(std::vector<Mount> &mounts)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> processes(opendir("/proc"),
                                                         closedir);
    const dirent *entry = nullptr;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this function's own
    while (processes != nullptr && (entry = readdir(processes.get()))) {
        pid_t pid = 0;
        if (!toNumber(std::string_view(entry->d_name), pid)) {
            continue;
        }
        const std::string command =
            slurp("/proc/" + std::string(entry->d_name) + "/cmdline");
        for (Mount &mount : mounts) {
            // The command that started it, and a program that it is about to
            // start, have its command line for a moment; in the background it
            // leads a session, otherwise it was there first.
            if (parseServerCommand(command, mount.point, mount.location) &&
                (mount.server == 0 || getsid(pid) == pid)) {
                mount.server = pid;
            }
        }
    }
}

// Runs in a child: system calls only.
void answerFor(const char *point, int answer)
{
    struct {
        int error;
        struct statvfs figures;
    } told{};
    struct stat st {
    };
    if (stat(point, &st) != 0 || statvfs(point, &told.figures) != 0) {
        told.error = errno;
    }
    const VolumeState state = {
        told.error == 0        ? Answer::Well
        : told.error == ENOSYS ? Answer::NotStarted
                               : Answer::Broken,
        told.error,
        static_cast<uint64_t>(told.figures.f_blocks) * told.figures.f_frsize,
        static_cast<uint64_t>(told.figures.f_bavail) * told.figures.f_frsize};
    if (write(answer, &state, sizeof(state)) < 0) {
        _exit(1);
    }
}

} // namespace

bool parseServerCommand(std::string_view command, const std::string &point,
                        uint32_t &location)
{
    const std::vector<std::string_view> words = split(command, '\0');
    if (words.size() < 4 ||
        words[0].substr(words[0].rfind('/') + 1) != PROGRAM ||
        words[words.size() - 2] != "-devopt") {
        return false;
    }
    int64_t id = 0;
    if (!toNumber(words.back(), id)) {
        return false;
    }
    if (id == 0) {
        id = locationAmong(words);
    }
    for (size_t i = 1; i + 2 < words.size(); ++i) {
        if (namesPoint(words[i], point)) {
            location = static_cast<uint32_t>(id);
            return true;
        }
    }
    return false;
}

std::vector<Mount> parseMountTable(std::string_view table)
{
    std::vector<Mount> mounts;
    for (const std::string_view line : split(table, '\n')) {
        const size_t mark = line.find(" - ");
        if (mark == std::string_view::npos) {
            continue;
        }
        const auto left = split(line.substr(0, mark), ' ');
        const auto right = split(line.substr(mark + 3), ' ');
        if (left.size() < 5 || right.size() < 3 || right[0] != TYPE) {
            continue;
        }
        Mount mount;
        mount.point = unescape(left[4]);
        mount.owner = ownerIn(right[2]);
        mounts.push_back(mount);
    }
    return mounts;
}

std::vector<Mount> readMounts()
{
    std::vector<Mount> mounts = parseMountTable(slurp("/proc/self/mountinfo"));
    if (!mounts.empty()) {
        findServers(mounts);
    }
    return mounts;
}

const Mount *findMount(const std::vector<Mount> &mounts, uint32_t location)
{
    for (const Mount &mount : mounts) {
        if (mount.location == location && location != 0) {
            return &mount;
        }
    }
    return nullptr;
}

bool isMountPoint(const std::string &path)
{
    const std::string table = slurp("/proc/self/mountinfo");
    for (const std::string_view line : split(table, '\n')) {
        const auto fields = split(line, ' ');
        if (fields.size() > 4 && unescape(fields[4]) == path) {
            return true;
        }
    }
    return false;
}

VolumeState askVolume(const std::string &point, double seconds)
{
    VolumeState state;
    const char *path = point.c_str();
    std::string told;
    if (askInChild([path](int answer) { answerFor(path, answer); }, seconds,
                   told) &&
        told.size() == sizeof(state)) {
        memcpy(&state, told.data(), sizeof(state));
    }
    return state;
}

bool hasDied(const Mount &mount)
{
    return mount.server == 0 &&
           askVolume(mount.point, DEAD_SECONDS).error == ENOTCONN;
}

} // namespace helper
