#include "tarnifs/mount/macos/spelling.h"

#include <algorithm>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/common/mount_context.h"
#include "tarnifs/names/device_path.h"

namespace
{

// The name that the record of a path has, or null.
const char *NameOfRecord(const std::string &path)
{
    const _KTL_OBJECT *object = FindObject(path.c_str());
    return object == nullptr ? nullptr : object->file_name;
}

} // namespace

std::string Spelled(const char *path)
{
    const std::string asked = path;
    if (MountContext() == nullptr || asked == "/") {
        return asked;
    }
    const TarniLock lock;
    std::string spelled = "/";
    size_t begin = 1;
    while (begin <= asked.size()) {
        const size_t slash = std::min(asked.find('/', begin), asked.size());
        const std::string name = asked.substr(begin, slash - begin);
        const char *known = NameOfRecord(ChildPath(spelled, name));
        spelled = ChildPath(spelled, known == nullptr ? name : known);
        begin = slash + 1;
    }
    return spelled;
}

bool MayBeShown(const std::string &path)
{
    if (MountContext() == nullptr || path == "/") {
        return true;
    }
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(path.c_str());
    return object == nullptr || (IsLinked(object) && !IsDoubtful(object));
}

bool IsFolder(const std::string &path)
{
    if (path == "/") {
        return true;
    }
    if (MountContext() == nullptr) {
        return false;
    }
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(path.c_str());
    return object != nullptr && object->mode == KTL_MODE_FOLDER;
}
