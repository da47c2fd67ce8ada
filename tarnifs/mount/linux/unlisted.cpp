#include "tarnifs/mount/linux/unlisted.h"

#include <cerrno>
#include <unordered_set>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/listing/entries.h"
#include "tarnifs/mount/linux/places.h"
#include "tarnifs/names/device_path.h"
#include "util/log.h"

namespace
{

// Enough for every program that looks for its own dot file in every folder; the
// misses are asked anew beyond it.
constexpr size_t MOST_MISSES = 20000;

std::unordered_set<std::string> found;
std::unordered_set<std::string> missed;

// Through a connection of its own, which ends with the question.
int AskApp(_CONTEXT *context, const std::string &path, const char *app_id,
           libiusb_afc_file_info *info)
{
    libiusb_afc *house = nullptr;
    int ret = libiusb_housearrest_init(context->device_handle, &house);
    if (ret != LIBIUSB_SUCCESS) {
        return ret;
    }
    ret = libiusb_housearrest_openapp(house, app_id);
    if (ret == LIBIUSB_SUCCESS) {
        ret =
            libiusb_afc_file_get_info(house, AppDevicePath(path).c_str(), info);
    }
    libiusb_housearrest_exit(house);
    return ret;
}

int AskDevice(_CONTEXT *context, const std::string &path,
              libiusb_afc_file_info *info)
{
    if (IsWithin(path, STORAGE_AREA)) {
        return libiusb_afc_file_get_info(context->afc_handle,
                                         StorageDevicePath(path).c_str(), info);
    }
    const _KTL_OBJECT *folder = GetParentObject(path.c_str());
    if (folder == nullptr || folder->app_id == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    return AskApp(context, path, folder->app_id, info);
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
    const int ret = AskDevice(context, path, &info);
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

bool AppearedOnDevice(_CONTEXT *context, const std::string &path)
{
    const TarniLock lock;
    libiusb_afc_file_info info{};
    _KTL_OBJECT *folder = GetParentObject(path.c_str());
    if (folder == nullptr || AskDevice(context, path, &info) != 0) {
        return false;
    }
    MakeRecord(path, info);
    LinkChild(folder, FindObject(path.c_str()));
    return true;
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
