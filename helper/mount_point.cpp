#include "helper/mount_point.h"

#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "helper/clock.h"
#include "helper/mounts.h"
#include "helper/text.h"

namespace helper
{

namespace fs = std::filesystem;

namespace
{

constexpr size_t LONGEST_NAME = 200; // room for a number, below 255
constexpr int MOST_NUMBERS = 99;

// NOLINTBEGIN(concurrency-mt-unsafe): nobody changes the environment, and the
// users are asked for before any thread starts
std::string fromEnvironment(const char *name)
{
    const char *value = getenv(name);
    return value != nullptr ? value : "";
}

const passwd *user()
{
    return getpwuid(getuid());
}
// NOLINTEND(concurrency-mt-unsafe)

std::string home()
{
    const std::string told = fromEnvironment("HOME");
    const passwd *record = told.empty() ? user() : nullptr;
    return record != nullptr ? record->pw_dir : told;
}

// A name that every file manager shows and no program takes for an option.
std::string folderName(const Device &device)
{
    std::string name;
    for (const char c : device.name) {
        const bool control = static_cast<unsigned char>(c) < ' ' || c == 0x7f;
        name += c == '/' ? ':' : control ? '_' : c;
    }
    name = printable(name);
    if (name.size() > LONGEST_NAME) {
        size_t end = LONGEST_NAME;
        while (end > 0 && (name[end] & 0xC0) == 0x80) {
            --end; // not in the middle of a character
        }
        name.resize(end);
    }
    if (name.empty() || name[0] == '.' || name[0] == '-') {
        name.insert(0, "_");
    }
    return name;
}

bool usable(const std::string &point)
{
    std::error_code error;
    return !isMountPoint(point) &&
           (!fs::exists(fs::symlink_status(point, error)) ||
            (fs::is_directory(fs::symlink_status(point, error)) &&
             fs::is_empty(point, error)));
}

// ---------------------------------------------------------------------------
// Which folders were made here
//
// Each is remembered by a file that is named after the folder's place on its
// disk and holds its path, so that a folder of the user's own that has the same
// path later is not taken for it.

std::string memory()
{
    const std::string state = fromEnvironment("XDG_STATE_HOME");
    return (state.empty() ? home() + "/.local/state" : state) +
           "/quorvel/folders";
}

std::string markOf(const std::string &point)
{
    struct stat st {
    };
    if (lstat(point.c_str(), &st) != 0) {
        return "";
    }
    return memory() + "/" + std::to_string(st.st_dev) + "-" +
           std::to_string(st.st_ino);
}

void remember(const std::string &point)
{
    std::error_code error;
    fs::create_directories(memory(), error);
    const std::string mark = markOf(point);
    if (!mark.empty()) {
        std::ofstream(mark) << point;
    }
}

Result make(const std::string &point, bool *made)
{
    if (mkdir(point.c_str(), 0755) == 0) {
        *made = true;
        remember(point);
        return {};
    }
    return errno == EEXIST
               ? Result()
               : refuse(message::POINT_UNMADE, {point, strerrordesc_np(errno)});
}

Result check(const std::string &point)
{
    std::error_code error;
    if (!fs::is_directory(point, error)) {
        return refuse(message::POINT_NO_FOLDER, {point});
    }
    if (access(point.c_str(), W_OK) != 0) {
        return refuse(message::FOLDER_NOT_OURS, {point});
    }
    if (!fs::is_empty(point, error)) {
        return refuse(message::POINT_NOT_EMPTY, {point});
    }
    return {};
}

} // namespace

std::string mountHome(const std::string &wanted)
{
    if (!wanted.empty()) {
        return wanted;
    }
    const passwd *record = user();
    const std::string media =
        "/run/media/" + std::string(record != nullptr ? record->pw_name : "?");
    return access(media.c_str(), W_OK | X_OK) == 0 ? media : home();
}

std::string defaultPoint(const Device &device, const std::string &home_folder)
{
    const std::string base =
        canonicalPoint(home_folder + "/" + folderName(device));
    std::string point = base;
    for (int i = 2; i <= MOST_NUMBERS && !usable(point); ++i) {
        point = base + " " + std::to_string(i);
    }
    return point;
}

std::string canonicalPoint(const std::string &path)
{
    std::error_code error;
    std::string text = fs::absolute(path, error).lexically_normal();
    while (text.size() > 1 && text.ends_with('/')) {
        text.pop_back();
    }
    const fs::path whole = text;
    const fs::path folder = fs::canonical(whole.parent_path(), error);
    if (error) {
        return text;
    }
    const fs::path joined = folder / whole.filename();
    // A link to a folder is followed, but never into a volume.
    if (!isMountPoint(joined) && fs::is_symlink(joined, error)) {
        const fs::path target = fs::read_symlink(joined, error);
        return canonicalPoint(folder / target);
    }
    return joined;
}

bool takeMountTurn(Descriptor &turn, double seconds)
{
    std::error_code error;
    fs::create_directories(memory(), error);
    const double until = now() + seconds;
    // A user who has no place for it goes on alone.
    turn.reset(
        open((memory() + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    while (turn.open() && flock(turn.get(), LOCK_EX | LOCK_NB) != 0) {
        if (now() > until) {
            return false;
        }
        usleep(20'000);
    }
    return true;
}

Result preparePoint(const std::string &point, bool *made)
{
    *made = false;
    if (isMountPoint(point)) {
        return refuse(message::POINT_IN_USE, {point});
    }
    const Result result = make(point, made);
    return result.ok() ? check(point) : result;
}

void removeMadePoint(const std::string &point)
{
    if (isMountPoint(point)) {
        return;
    }
    const std::string mark = markOf(point);
    std::ifstream file(mark);
    const std::string path{std::istreambuf_iterator<char>(file), {}};
    if (file && path == point && rmdir(point.c_str()) == 0) {
        unlink(mark.c_str());
    }
}

} // namespace helper
