#include "tarnifs/listing/app_folder.h"

#include <string>

#include "tarnifs/listing/entries.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "enumApps";

// An entry that can't be asked about is left out. The device's code.
int listEntry(const LISTING &listing, const char *name)
{
    const std::string volumePath = ChildPath(listing.path, name);
    libiusb_afc_file_info info{};
    const int ret = libiusb_afc_file_get_info(
        listing.afc, AppDevicePath(volumePath).c_str(), &info);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_get_info failed. error : %d", SELF, ret);
        return ret;
    }
    _KTL_OBJECT *object = GetObjectWithFileName(volumePath.c_str());
    const bool isFolder = info.file_type == LIBIUSB_FILE_FOLDER;
    if (object->type != KTL_STAGED) { // else it is newer than the device's
        object->mode = isFolder ? KTL_MODE_FOLDER : KTL_MODE_FILE;
        object->type = isFolder ? KTL_DEVICE_FOLDER : KTL_DEVICE_FILE;
        FillSizeAndTimes(object, info);
    }
    object->app_id = ReplaceString(object->app_id, listing.folder->app_id);
    ShowEntry(listing, name, object);
    return 0;
}

// False: the folder could not be read, or the connection went while its entries
// were asked about.
bool listEntries(const LISTING &listing, bool *busy)
{
    const std::string devicePath = AppDevicePath(listing.path);
    uint32_t count = 0;
    int ret = libiusb_afc_file_read_directory(listing.afc, devicePath.c_str(),
                                              nullptr, &count);
    if (ret != 0) {
        QNLog(3,
              "%s libiusb_afc_file_read_directory failed. from(%s). ret : %d",
              SELF, devicePath.c_str(), ret);
        return false;
    }
    if (count > BUSY_ENTRIES) {
        sendPipeMsg(BUSY_ON);
        *busy = true;
    }
    char **list = nullptr;
    ret = libiusb_afc_file_read_directory(listing.afc, devicePath.c_str(),
                                          &list, &count);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_read_directory failed. error : %d", SELF,
              ret);
        return false;
    }
    bool lost = false;
    for (char **name = list; *name != nullptr; ++name) {
        if (IsHiddenName(*name)) {
            NoteLeftOut(listing.folder);
            continue;
        }
        ret = listEntry(listing, *name);
        lost = lost || ret == LIBIUSB_ERROR_LOST_CONNECTION;
    }
    libiusb_misc_free_strings_array(list);
    return !lost;
}

// Ends the connection, a second time when the first failed.
int endHouse(libiusb_afc *house)
{
    const int ret = libiusb_housearrest_exit(house);
    if (ret == 0) {
        return 0;
    }
    QNLog(3, "%s libiusb_housearrest_exit failed. error : %d", SELF, ret);
    return libiusb_housearrest_exit(house);
}

} // namespace

int ListAppFolder(_CONTEXT *context, _KTL_OBJECT *folder, const char *path,
                  void *buffer, tarni_filler filler)
{
    libiusb_afc *house = nullptr;
    int ret = libiusb_housearrest_init(context->device_handle, &house);
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_init failed. error : %d", SELF, ret);
        return ret;
    }
    bool busy = false;
    bool read = false;
    ret = libiusb_housearrest_openapp(house, folder->app_id);
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_openapp failed. error : %d", SELF,
              ret);
    } else {
        read = listEntries({house, folder, path, buffer, filler}, &busy);
    }
    ret = endHouse(house);
    if (busy) {
        sendPipeMsg(BUSY_OFF);
    }
    if (!read) {
        NoteListing(folder, false); // what there is, for now
    }
    return ret;
}
