#include "tarnifs/mount/linux/lookup.h"

#include <cerrno>
#include <chrono>
#include <unordered_map>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/linux/hidden.h"
#include "tarnifs/mount/linux/unlisted.h"
#include "tarnifs/mount/operations.h"
#include "tarnifs/names/device_path.h"

namespace
{

using Clock = std::chrono::steady_clock;

// What a lookup asked the device in vain, by path. Programs ask for many names in
// a row; each of them must not try the device, and raise a dialog, anew.
struct Failure {
    int result;
    Clock::time_point when;
};
constexpr size_t LONGEST_NAME = 255; // bytes, of what can be made
constexpr auto FAILURE_LASTS = std::chrono::seconds(1);
constexpr size_t MOST_FAILURES = 1000;
std::unordered_map<std::string, Failure> failures;

// The answer that was got for a path a moment ago, or 0.
int RecentFailure(const std::string &path)
{
    const auto known = failures.find(path);
    if (known == failures.end()) {
        return 0;
    }
    if (Clock::now() - known->second.when < FAILURE_LASTS) {
        return known->second.result;
    }
    failures.erase(known);
    return 0;
}

void NoteFailure(const std::string &path, int result)
{
    if (failures.size() >= MOST_FAILURES) {
        failures.clear();
    }
    failures[path] = {result, Clock::now()};
}

// What the catalogue knows of one path.
struct Look {
    bool exists = false;
    bool folder = false;
    std::string spelled;
};

// A record that is in no folder's list is what a failed create or move left
// behind, and does not exist; unless it is a name that listings leave out.
Look LookAt(const std::string &folder, const std::string &name)
{
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(ChildPath(folder, name).c_str());
    if (object == nullptr) {
        return {};
    }
    Look look;
    look.spelled = ChildPath(
        folder, object->file_name != nullptr ? object->file_name : name);
    look.exists = !IsDoubtful(object) &&
                  (IsLinked(object) || IsUnlistedFound(look.spelled));
    look.folder = object->mode == KTL_MODE_FOLDER;
    return look;
}

// Whether the listing handler would answer from the catalogue.
bool IsListed(const std::string &folder)
{
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(folder.c_str());
    return object != nullptr && !IsListingUnfinished(object) &&
           (object->enumerated != 0 || HasChildren(object));
}

bool FolderHasChildren(const std::string &folder)
{
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(folder.c_str());
    return object != nullptr && HasChildren(object);
}

// A folder's listing for a lookup's sake.
int ListForLookup(const std::string &folder)
{
    int ret = RecentFailure(folder);
    if (ret != 0) {
        return ret;
    }
    ret = RunListing(folder, nullptr, nullptr);
    if (ret != 0) {
        NoteFailure(folder, ret);
    } else if (!IsListed(folder)) {
        NoteFailure(folder, -ENOENT); // an app's that could not be read
    }
    return ret;
}

// A name that no listing would show.
int AskForLookup(const std::string &path)
{
    int ret = RecentFailure(path);
    if (ret != 0) {
        return ret;
    }
    ret = AskAboutUnlisted(MountContext(), path);
    if (ret != 0 && ret != -ENOENT) {
        NoteFailure(path, ret);
    }
    return ret;
}

// Does what it takes to know whether a folder has a name: 0 when the catalogue
// now tells, else the lookup's answer. Of the root it takes nothing: its listing
// asks no device, and below a name that it does not hold nothing is looked for.
int Learn(const std::string &folder, const std::string &name)
{
    // The folders of the media views list such names like any other.
    const bool isView = IsWithin(folder, MEDIA_AREA) && folder != MEDIA_AREA;
    if (name.starts_with('.') && !isView) {
        return AskForLookup(ChildPath(folder, name));
    }
    if (IsListed(folder)) {
        return -ENOENT;
    }
    return ListForLookup(folder);
}

int LookUp(const std::string &folder, const std::string &name, Look *look)
{
    *look = LookAt(folder, name);
    if (look->exists) {
        return 0;
    }
    const int ret = Learn(folder, name);
    if (ret != 0) {
        return ret;
    }
    *look = LookAt(folder, name);
    return look->exists ? 0 : -ENOENT;
}

// The folder of `path`, resolved, in *folder.
int ResolveFolder(const std::string &path, std::string *folder)
{
    *folder = "/";
    size_t begin = 1;
    size_t slash = path.find('/', begin);
    while (slash != std::string::npos) {
        Look look;
        const int ret =
            LookUp(*folder, path.substr(begin, slash - begin), &look);
        if (ret != 0) {
            return ret;
        }
        if (!look.folder) {
            return -ENOTDIR;
        }
        *folder = look.spelled;
        begin = slash + 1;
        slash = path.find('/', begin);
    }
    return 0;
}

int Resolve(const char *asked, bool may_be_missing, std::string *spelled)
{
    if (MountContext() == nullptr) {
        return -ENOSYS;
    }
    const std::string path = RestoredName(asked);
    if (path == "/") {
        *spelled = path;
        return 0;
    }
    // The whole path first: nearly always it is there, in the right spelling.
    const std::string name = LeafOf(path);
    Look look = LookAt(ParentFolderText(path), name);
    if (look.exists) {
        *spelled = look.spelled;
        return 0;
    }
    std::string folder;
    int ret = ResolveFolder(path, &folder);
    if (ret != 0) {
        return ret;
    }
    ret = LookUp(folder, name, &look);
    if (ret == -ENOENT && may_be_missing) {
        *spelled = ChildPath(folder, name);
        if (name.size() > LONGEST_NAME) {
            return -ENAMETOOLONG;
        }
        // A child that is made in a folder makes it look listed.
        return EnsureListed(folder);
    }
    *spelled = look.spelled;
    return ret;
}

} // namespace

int ResolvePath(const char *path, std::string *spelled)
{
    return Resolve(path, false, spelled);
}

int ResolveTarget(const char *path, std::string *spelled)
{
    return Resolve(path, true, spelled);
}

int RunListing(const std::string &folder, void *buffer, tarni_filler filler)
{
    tarni_file_info info;
    const int ret = HostResult(
        tarni_opers.readdir(folder.c_str(), buffer, filler, 0, &info));
    if (ret == 0) {
        failures.erase(folder);
    }
    return ret;
}

int EnsureListed(const std::string &folder)
{
    return IsListed(folder) ? 0 : RunListing(folder, nullptr, nullptr);
}

int CheckEmpty(const std::string &folder)
{
    const int ret = EnsureListed(folder);
    if (ret != 0) {
        return ret;
    }
    if (!FolderHasChildren(folder)) {
        ShowLeftOut(MountContext(), folder);
    }
    return FolderHasChildren(folder) ? -ENOTEMPTY : 0;
}

bool PathIsFolder(const std::string &path)
{
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(path.c_str());
    return path == "/" ||
           (object != nullptr && object->mode == KTL_MODE_FOLDER);
}
