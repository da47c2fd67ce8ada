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

void MakeRecord(const std::string &path, const libiusb_afc_file_info &info)
{
    _KTL_OBJECT *object = GetObjectWithFileName(path.c_str());
    object->mode =
        info.file_type == LIBIUSB_FILE_FOLDER ? KTL_MODE_FOLDER : KTL_MODE_FILE;
    FillSizeAndTimes(object, info);
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
    // A file that was removed while open is known from its rename or not at all.
    if (IsFuseHidden(path) || !IsWithin(path, STORAGE_AREA) ||
        missed.contains(path)) {
        return -ENOENT;
    }
    const TarniLock lock;
    libiusb_afc_file_info info{};
    const int ret = libiusb_afc_file_get_info(
        context->afc_handle, StorageDevicePath(path).c_str(), &info);
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

void ForgetUnlisted(const std::string &path)
{
    std::erase_if(missed, [&path](const std::string &name) {
        return IsWithin(name, path);
    });
    std::erase_if(found, [&path](const std::string &name) {
        if (!IsWithin(name, path)) {
            return false;
        }
        DeleteRecord(name);
        return true;
    });
}
