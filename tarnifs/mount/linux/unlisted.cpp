#include "tarnifs/mount/linux/unlisted.h"

#include <cerrno>
#include <unordered_set>
#include <vector>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/listing/entries.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/operations.h"
#include "tarnifs/names/device_path.h"
#include "util/log.h"

namespace
{

// Enough for every program that looks for its own dot file in every folder; the
// misses are asked anew beyond it.
constexpr size_t MOST_MISSES = 20000;

std::unordered_set<std::string> found;
std::unordered_set<std::string> missed;

// Asks about a path of an app through a connection of its own, which ends with
// the question.
template <typename Ask>
int AskApp(_CONTEXT *context, const std::string &path, const char *app_id,
           Ask ask)
{
    libiusb_afc *house = nullptr;
    int ret = libiusb_housearrest_init(context->device_handle, &house);
    if (ret != LIBIUSB_SUCCESS) {
        return ret;
    }
    ret = libiusb_housearrest_openapp(house, app_id);
    if (ret == LIBIUSB_SUCCESS) {
        ret = ask(house, AppDevicePath(path).c_str());
    }
    libiusb_housearrest_exit(house);
    return ret;
}

// Calls `ask` with the connection that reaches a path, and the device's path.
// `folder` is the record of the path or of the folder it lies in.
template <typename Ask>
int AskDevice(_CONTEXT *context, const std::string &path,
              const _KTL_OBJECT *folder, Ask ask)
{
    if (IsWithin(path, STORAGE_AREA)) {
        return ask(context->afc_handle, StorageDevicePath(path).c_str());
    }
    if (folder == nullptr || folder->app_id == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    return AskApp(context, path, folder->app_id, ask);
}

int GetInfo(_CONTEXT *context, const std::string &path,
            libiusb_afc_file_info *info)
{
    return AskDevice(context, path, GetParentObject(path.c_str()),
                     [info](libiusb_afc *afc, const char *device_path) {
                         return libiusb_afc_file_get_info(afc, device_path,
                                                          info);
                     });
}

// The names on the device that listings of a folder leave out; none when the
// device can't tell.
std::vector<std::string> LeftOutNames(_CONTEXT *context,
                                      const std::string &folder)
{
    const TarniLock lock;
    std::vector<std::string> names;
    const _KTL_OBJECT *object = FindObject(folder.c_str());
    if (object == nullptr || !HasLeftOut(object)) {
        return names;
    }
    AskDevice(context, folder, object,
              [&names](libiusb_afc *afc, const char *device_path) {
                  char **list = nullptr;
                  uint32_t count = 0;
                  const int ret = libiusb_afc_file_read_directory(
                      afc, device_path, &list, &count);
                  for (uint32_t i = 0; ret == 0 && i < count; ++i) {
                      if (IsHiddenName(list[i])) {
                          names.emplace_back(list[i]);
                      }
                  }
                  libiusb_misc_free_strings_array(list);
                  return ret;
              });
    return names;
}

void MakeRecord(const std::string &path, const libiusb_afc_file_info &info)
{
    _KTL_OBJECT *object = GetObjectWithFileName(path.c_str());
    const bool is_folder = info.file_type == LIBIUSB_FILE_FOLDER;
    object->mode = is_folder ? KTL_MODE_FOLDER : KTL_MODE_FILE;
    FillSizeAndTimes(object, info);
    if (IsWithin(path, APPS_AREA)) {
        object->type = is_folder ? KTL_DEVICE_FOLDER : KTL_DEVICE_FILE;
        object->app_id = ReplaceString(object->app_id,
                                       GetParentObject(path.c_str())->app_id);
    }
}

void DeleteRecord(const std::string &path)
{
    _KTL_OBJECT *object = FindObject(path.c_str());
    if (object != nullptr && !IsLinked(object) && object->open_count == 0) {
        DeleteChildObject(object, path.c_str());
        DeleteObject(object, path.c_str());
    }
}

} // namespace

bool IsUnlistedFound(const std::string &path)
{
    return found.contains(path);
}

int AskAboutUnlisted(_CONTEXT *context, const std::string &path)
{
    if (!IsWritablePlace(path) || missed.contains(path)) {
        return -ENOENT;
    }
    const TarniLock lock;
    libiusb_afc_file_info info{};
    const int ret = GetInfo(context, path, &info);
    if (ret == LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND) {
        if (missed.size() >= MOST_MISSES) {
            missed.clear();
        }
        missed.insert(path);
        return -ENOENT;
    }
    if (ret != LIBIUSB_SUCCESS) {
        QNLog(3, "%s libiusb_afc_file_get_info failed. path(%s), ret : %d",
              "AskAboutUnlisted", path.c_str(), ret);
        return -EIO;
    }
    MakeRecord(path, info);
    found.insert(path);
    return 0;
}

int AskAboutAppeared(_CONTEXT *context, const std::string &path)
{
    const TarniLock lock;
    libiusb_afc_file_info info{};
    _KTL_OBJECT *folder = GetParentObject(path.c_str());
    if (folder == nullptr) {
        return -ENOENT;
    }
    const int ret = GetInfo(context, path, &info);
    // Without a service to ask, the handler will not get one either, and says so.
    if (ret == LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND ||
        ret <= LIBIUSB_ERROR_NO_DAEMON) {
        return -ENOENT;
    }
    if (ret != LIBIUSB_SUCCESS) {
        QNLog(3, "%s libiusb_afc_file_get_info failed. path(%s), ret : %d",
              "AskAboutAppeared", path.c_str(), ret);
        return -EIO;
    }
    MakeRecord(path, info);
    LinkChild(folder, FindObject(path.c_str()));
    return 0;
}

int AskIfThere(_CONTEXT *context, const std::string &path)
{
    const TarniLock lock;
    libiusb_afc_file_info info{};
    const int ret = GetInfo(context, path, &info);
    if (ret == LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND) {
        return -ENOENT;
    }
    return ret == LIBIUSB_SUCCESS ? 0 : -EIO;
}

void ShowLeftOut(_CONTEXT *context, const std::string &folder)
{
    for (const std::string &name : LeftOutNames(context, folder)) {
        const std::string path = ChildPath(folder, name);
        const bool there = AskAboutAppeared(context, path) == 0;
        // One in use would have had its record in the list.
        if (there && IsFuseHidden(path) && tarni_opers.unlink != nullptr) {
            tarni_opers.unlink(path.c_str());
        }
    }
}

void ForgetUnlisted(const std::string &path)
{
    std::erase_if(missed, [&path](const std::string &name) {
        return IsWithin(name, path);
    });
    const TarniLock lock;
    std::erase_if(found, [&path](const std::string &name) {
        if (!IsWithin(name, path)) {
            return false;
        }
        DeleteRecord(name);
        return true;
    });
}
