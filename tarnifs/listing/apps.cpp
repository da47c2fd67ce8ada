#include "tarnifs/listing/apps.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/listing/app_folder.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/names/encoding.h"
#include "tarnifs/notify/busy_signal.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "enumApps";
constexpr size_t NAME_SIZE = 512;
constexpr int LAST_NUMBER = 999; // of folders with one display name

void freeApps(libiusb_app *list)
{
    while (list != nullptr) {
        libiusb_app *next = list->next;
        delete[] list->name;
        delete[] list->bundle_id;
        delete list;
        list = next;
    }
}

using AppList = std::unique_ptr<libiusb_app, decltype(&freeApps)>;

// The folder's path: the app's name, with a number when it is taken already.
std::string freeFolder(const std::string &name)
{
    const std::string base = std::string(APPS_AREA) + "/" + name;
    std::string candidate = base;
    for (int number = 2;
         number <= LAST_NUMBER && FindObject(candidate.c_str()) != nullptr;
         ++number) {
        candidate = base + " (" + std::to_string(number) + ")";
    }
    return candidate;
}

// What can't be a folder's name, whatever its characters.
bool isImpossible(const char *name)
{
    return name[0] == '\0' || strlen(name) >= NAME_SIZE ||
           strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// The canonical form of an app's name. False after logging: the walk ends.
bool convertName(const libiusb_app &app, std::string *name)
{
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[NAME_SIZE]());
    if (buffer == nullptr) {
        QNLog(3, "%s Low memory!", SELF);
        return false;
    }
    if (getUTF8MACName(app.name, buffer.get()) != 0) {
        QNLog(3, "%s getUTF8MACName failed. target App Name : %s", SELF,
              app.name);
        return false;
    }
    *name = buffer.get();
    return true;
}

int listApps(_CONTEXT *context, _KTL_OBJECT *apps, void *buffer,
             tarni_filler filler)
{
    BusySignal busy;
    busy.begin();
    libiusb_app *first = nullptr;
    const int ret =
        libiusb_instproxy_getAppId(context->instproxy_handle, &first);
    const AppList list(first, freeApps);
    if (ret != 0) {
        QNLog(3, "%s libiusb_instproxy_getAppId failed. error : %d", SELF, ret);
        return ret;
    }
    if (list == nullptr) {
        QNLog(3, "%s applist is NULL!", SELF);
        return 0;
    }
    for (const libiusb_app *app = list.get(); app != nullptr; app = app->next) {
        if (isImpossible(app->name)) {
            QNLog(3, "%s app left out for its name : %s", SELF, app->bundle_id);
            continue;
        }
        std::string name;
        if (!convertName(*app, &name)) {
            break;
        }
        _KTL_OBJECT *folder = GetObjectWithFileName(freeFolder(name).c_str());
        folder->mode = KTL_MODE_FOLDER;
        folder->type = KTL_DEVICE_FOLDER;
        folder->app_id = ReplaceString(folder->app_id, app->bundle_id);
        SetPresentTimes(folder);
        LinkChild(apps, folder);
        if (filler != nullptr) {
            filler(buffer, folder->file_name, nullptr, 0);
        }
    }
    return 0;
}

} // namespace

int enumApps(_CONTEXT *context, const char *path, void *buffer,
             tarni_filler filler)
{
    _KTL_OBJECT *folder = GetObject(path);
    if (path == APPS_AREA) {
        return listApps(context, folder, buffer, filler);
    }
    if (strstr(path, "/Apps") == nullptr || folder->app_id == nullptr) {
        return 0;
    }
    return ListAppFolder(context, folder, path, buffer, filler);
}
