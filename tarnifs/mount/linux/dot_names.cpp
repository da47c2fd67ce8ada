#include "tarnifs/mount/linux/dot_names.h"

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/linux/unlisted.h"
#include "tarnifs/names/device_path.h"

namespace
{

// Adds the names in `object` and below; `path` is its own, relative one.
void Collect(_KTL_OBJECT *object, const std::string &path,
             std::vector<std::string> *names)
{
    const _KTL_LIST *head = ChildList(object);
    for (_KTL_LIST *at = head->next; at != head; at = at->next) {
        _KTL_OBJECT *child = ObjectOfSibling(at);
        if (child->file_name == nullptr) {
            continue;
        }
        const std::string child_path = path + "/" + child->file_name;
        if (child->file_name[0] == '.') {
            names->push_back(child_path);
        }
        Collect(child, child_path, names);
    }
}

bool IsShown(const std::string &path)
{
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(path.c_str());
    return object != nullptr && IsLinked(object);
}

} // namespace

std::vector<std::string> ShownDotNames(const std::string &folder)
{
    const TarniLock lock;
    std::vector<std::string> names;
    _KTL_OBJECT *object = FindObject(folder.c_str());
    if (object != nullptr) {
        Collect(object, "", &names);
    }
    return names;
}

void ShowDotNames(const std::string &folder,
                  const std::vector<std::string> &names)
{
    for (const std::string &name : names) {
        const std::string path = folder + name;
        std::string parent;
        // A folder that gets a child before it is listed would look listed.
        if (ResolvePath(ParentFolderText(path).c_str(), &parent) == 0 &&
            EnsureListed(parent) == 0 && !IsShown(path)) {
            AskAboutAppeared(MountContext(), path);
        }
    }
}
