#include "tarnifs/media/photo_entry.h"

#include <ctime>
#include <new>

#include "util/log.h"

namespace
{

constexpr const char *SELF = "GetPhotoFromDevice";
constexpr int LEFT_OUT = -1;
constexpr int NO_MEMORY = -2;

// The database of a cloud library has the media root in its paths.
constexpr std::string_view MEDIA_ROOT = "/var/mobile/Media";

bool takeCloudPath(const std::string &path, PHOTO_ROW *row)
{
    if (path.size() <= MEDIA_ROOT.size()) {
        QNLog(3, "%s path is too short. path(%s)", SELF, path.c_str());
        return false;
    }
    row->devicePath = path.substr(MEDIA_ROOT.size());
    return true;
}

bool takeCloudRow(const Statement &query, PHOTO_ROW *row)
{
    if (query.isNull(0) || query.isNull(1)) {
        return false;
    }
    row->name = query.text(1);
    row->master = query.integer(5);
    row->subtype = query.integer(7);
    return takeCloudPath(query.text(0), row);
}

bool takeRow(const Statement &query, PHOTO_ROW *row)
{
    if (query.isNull(0) || query.isNull(1) || query.isNull(7)) {
        return false;
    }
    row->name = query.text(7);
    row->createDate = query.integer(5);
    row->subtype = query.integer(8);
    row->devicePath = "/" + query.text(0) + "/" + query.text(1);
    return true;
}

// A resource must be the one that the database describes: another size is
// another file.
bool isCloudResource(const PHOTO_ROW &row, uint64_t deviceSize,
                     int *last_master)
{
    if (row.size == 0 || static_cast<uint64_t>(row.size) != deviceSize ||
        row.master == *last_master) {
        return false;
    }
    *last_master = row.master;
    return true;
}

// Of a device's own pictures only the existence must be right.
bool isThere(const PHOTO_ROW &row, uint64_t deviceSize)
{
    if (row.size == 0 || deviceSize == 0) {
        return false;
    }
    if (static_cast<uint64_t>(row.size) != deviceSize) {
        QNLog(
            3,
            "%s file : (%s), database file size : %lld, local file size : %lld",
            SELF, row.logName.c_str(), static_cast<long long>(row.size),
            static_cast<long long>(deviceSize));
    }
    return true;
}

void fillEntry(_KTL_OBJECT *object, const PHOTO_ROW &row, uint64_t deviceSize)
{
    const time_t now = time(nullptr);
    object->mode = KTL_MODE_FILE;
    object->type = KTL_DEVICE_FILE;
    object->birth_time = row.momentDate != 0   ? row.momentDate
                         : row.createDate != 0 ? row.createDate
                                               : now;
    object->modify_time = row.modifyDate != 0 ? row.modifyDate : now;
    object->access_time = object->modify_time;
    object->size = deviceSize;
}

int makeEntry(MEDIA_LISTING *listing, const PHOTO_ROW &row, bool isFilm,
              uint64_t deviceSize)
{
    std::string name;
    if (!CanonicalName(SELF, row.name, &name) || !CanBeEntry(SELF, name)) {
        return LEFT_OUT;
    }
    const std::string &devicePath = isFilm ? row.filmPath : row.devicePath;
    const std::string path =
        listing->names.path(isFilm ? FilmOf(name) : name,
                            NUMBER_PLACE::BEFORE_EXTENSION, devicePath);
    _KTL_OBJECT *object = GetObjectWithFileName(path.c_str());
    if (object->device_path == nullptr) {
        object->device_path = ReplaceString(nullptr, devicePath.c_str());
    }
    fillEntry(object, row, deviceSize);
    Publish(*listing, object);
    return 0;
}

int getPhoto(MEDIA_LISTING *listing, const PHOTO_ROW &row, bool is_cloud,
             bool isFilm, int *last_master)
{
    const std::string &devicePath = isFilm ? row.filmPath : row.devicePath;
    libiusb_afc_file_info info{};
    const int ret = AskDevice(listing, devicePath, &info);
    if (ret != 0) {
        QNLog(3, "%s file : (%s) get info failed. ret ; %d", SELF,
              row.logName.c_str(), ret);
        return LEFT_OUT;
    }
    const bool good = is_cloud ? isCloudResource(row, info.size, last_master)
                               : isThere(row, info.size);
    return good ? makeEntry(listing, row, isFilm, info.size) : LEFT_OUT;
}

} // namespace

bool TakePhotoRow(const Statement &query, bool is_cloud, PHOTO_ROW *row)
{
    *row = {};
    if (!(is_cloud ? takeCloudRow(query, row) : takeRow(query, row)) ||
        !IsInside(SELF, row->devicePath)) {
        return false;
    }
    row->logName = query.text(1);
    row->momentDate = query.integer(2);
    row->modifyDate = query.integer(3);
    row->size = query.integer64(4);
    row->filmPath = FilmOf(row->devicePath);
    return true;
}

int GetPhotoFromDevice(MEDIA_LISTING *listing, const PHOTO_ROW &row,
                       bool is_cloud, int subtype, int *last_master)
{
    try {
        return getPhoto(listing, row, is_cloud, subtype == 2, last_master);
    } catch (const std::bad_alloc &) {
        return NO_MEMORY;
    }
}
