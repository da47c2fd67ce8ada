#include "tarnifs/listing/storage.h"

#include <string>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/listing/entries.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "enumStorage";

// Makes the area's folder where a check finds none. A check that failed for
// another reason hides nothing: making a folder that is there succeeds, and the
// listing goes on.
int checkStorageRoot(libiusb_afc *afc)
{
    libiusb_afc_file_info info{};
    int ret = libiusb_afc_file_get_info(afc, STORAGE_ROOT, &info);
    if (ret == 0) {
        return 0;
    }
    QNLog(3, "%s libiusb_afc_file_get_info failed ret : %d", SELF, ret);
    ret = libiusb_afc_make_directory(afc, STORAGE_ROOT);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_make_directory error. ret : %d", SELF, ret);
    }
    return ret;
}

int readDirectory(libiusb_afc *afc, const char *path, char ***list,
                  uint32_t *count)
{
    const std::string devicePath = StorageDevicePath(path);
    const int ret =
        libiusb_afc_file_read_directory(afc, devicePath.c_str(), list, count);
    if (ret != 0) {
        QNLog(3,
              "%s libiusb_afc_file_read_directory failed. path(%s), ret : %d",
              SELF, path, ret);
    }
    return ret;
}

// What is neither file nor folder keeps the record's mode.
void fillEntry(_KTL_OBJECT *object, const libiusb_afc_file_info &info)
{
    if (object->type == KTL_STAGED) {
        return; // what it holds is newer than what the device has
    }
    if (info.file_type == LIBIUSB_FILE_REGULAR) {
        object->mode = KTL_MODE_FILE;
    } else if (info.file_type == LIBIUSB_FILE_FOLDER) {
        object->mode = KTL_MODE_FOLDER;
    }
    FillSizeAndTimes(object, info);
}

int listEntry(const LISTING &listing, const char *name)
{
    const std::string volumePath = ChildPath(listing.path, name);
    libiusb_afc_file_info info{};
    const int ret = libiusb_afc_file_get_info(
        listing.afc, StorageDevicePath(volumePath).c_str(), &info);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_get_info failed. code : %d\n", SELF, ret);
        return ret;
    }
    _KTL_OBJECT *object = GetObjectWithFileName(volumePath.c_str());
    fillEntry(object, info);
    ShowEntry(listing, name, object);
    return 0;
}

// The first entry that can't be asked about ends the walk with its code.
int listEntries(const LISTING &listing, char **list)
{
    for (char **name = list; *name != nullptr; ++name) {
        if (IsHiddenName(*name)) {
            NoteLeftOut(listing.folder);
            continue;
        }
        const int ret = listEntry(listing, *name);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

} // namespace

int enumStorage(_CONTEXT *context, const char *path, void *buffer,
                tarni_filler filler, off_t)
{
    libiusb_afc *afc = context->afc_handle;
    const LISTING listing{afc, GetObject(path), path, buffer, filler};
    int ret = checkStorageRoot(afc);
    if (ret != 0) {
        return ret;
    }
    uint32_t count = 0;
    ret = readDirectory(afc, path, nullptr, &count);
    if (ret != 0) {
        return ret;
    }
    const bool busy = count > BUSY_ENTRIES;
    if (busy) {
        sendPipeMsg(BUSY_ON);
    }
    char **list = nullptr;
    ret = readDirectory(afc, path, &list, &count);
    if (ret != 0) {
        return ret; // a busy signal is not taken back on this path
    }
    ret = listEntries(listing, list);
    libiusb_misc_free_strings_array(list);
    if (busy) {
        sendPipeMsg(BUSY_OFF);
    }
    return ret;
}
