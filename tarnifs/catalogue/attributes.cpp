#include "tarnifs/catalogue/attributes.h"

#include <cstring>
#include <ctime>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "util/log.h"

namespace
{

constexpr mode_t ALL_PERMISSIONS = 0777;

bool isRoot(const char *path)
{
    return strcmp(path, "/") == 0;
}

// What file managers leave at the root of every volume never exists here.
bool isTopLevelDotName(const char *path)
{
    return path[0] == '/' && path[1] == '.';
}

void fillTimes(struct stat *st, time_t birth, time_t modify, time_t access)
{
    hostSetBirthTime(st, birth);
    st->st_mtime = modify;
    st->st_atime = access;
}

void fillRoot(struct stat *st)
{
    const time_t now = time(nullptr);
    st->st_mode = KTL_MODE_FOLDER | ALL_PERMISSIONS;
    fillTimes(st, now, now, now);
}

void fillFrom(const _KTL_OBJECT *object, struct stat *st)
{
    st->st_mode = object->mode | ALL_PERMISSIONS;
    st->st_size = static_cast<off_t>(object->size);
    fillTimes(st, object->birth_time, object->modify_time, object->access_time);
}

} // namespace

int tarnifs_getattr(const char *path, struct stat *st)
{
    const TarniLock lock;
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        return ret;
    }
    if (isTopLevelDotName(path)) {
        return -ENOENT;
    }
    memset(st, 0, sizeof(*st));
    if (isRoot(path)) {
        fillRoot(st);
        return 0;
    }
    const _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr) {
        return -ENOENT;
    }
    fillFrom(object, st);
    return 0;
}

int tarnifs_fgetattr(const char *path, struct stat *st, tarni_file_info *)
{
    return tarnifs_getattr(path, st);
}

int tarnifs_setattr_x(const char *path, const tarni_setattr *attr)
{
    const TarniLock lock;
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        QNLog(3, "%s getContext failed. ret : %d", "tarnifs_setattr_x", ret);
        return ret;
    }
    _KTL_OBJECT *object = GetObject(path);
    const time_t now = time(nullptr);
    if ((attr->valid & TARNI_SETATTR_SIZE) != 0) {
        object->size = attr->size;
    }
    if ((attr->valid & TARNI_SETATTR_CRTIME) != 0) {
        object->birth_time = now;
    }
    if ((attr->valid & TARNI_SETATTR_MODTIME) != 0) {
        object->modify_time = now;
    }
    return 0;
}

int tarnifs_fsetattr_x(const char *path, const tarni_setattr *attr,
                       tarni_file_info *)
{
    return tarnifs_setattr_x(path, attr);
}
