#include "tarnifs/catalogue/object.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <unordered_set>

#include "device/libiusb.h"
#include "tarnifs/catalogue/key.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/names/device_path.h"
#include "util/log.h"

ObjectMap Object_list(11);

namespace
{

// Folders whose listing failed half-way. By address, so that it follows them
// through renames; DeleteObject takes them out.
std::unordered_set<const _KTL_OBJECT *> unfinished;

// Folders that have more on the device than listings show; likewise.
std::unordered_set<const _KTL_OBJECT *> leftOut;
// Of which nobody knows whether they are still as they were.
std::unordered_set<const _KTL_OBJECT *> doubtful;

_KTL_OBJECT *fromAddress(uint64_t address)
{
    return reinterpret_cast<_KTL_OBJECT *>(address);
}

uint64_t toAddress(const _KTL_OBJECT *object)
{
    return reinterpret_cast<uint64_t>(object);
}

libiusb_afc *houseOf(const _KTL_OBJECT *object)
{
    return reinterpret_cast<libiusb_afc *>(object->hhandle);
}

void initList(_KTL_LIST *list)
{
    list->next = list;
    list->prev = list;
}

_KTL_OBJECT *makeObject()
{
    auto *object = new _KTL_OBJECT{};
    object->mode = KTL_MODE_FILE;
    initList(ChildList(object));
    initList(SiblingLink(object));
    return object;
}

// Closes what the record holds open on the device; results are not looked at,
// because there is nobody left to tell.
void closeHandles(_KTL_OBJECT *object, libiusb_afc *afc)
{
    if (object->file_handle != 0) {
        libiusb_afc *house = houseOf(object);
        libiusb_afc_file_close(house != nullptr ? house : afc,
                               object->file_handle);
        object->file_handle = 0;
    }
    CloseHouseArrest(object);
}

// A file of an app is open through its folder's connection, and counts there:
// closed on any other it would stay open on the device, and the folder's
// connection with it.
void closeThroughFolder(_KTL_OBJECT *object, const char *path)
{
    if (object->file_handle == 0 || object->app_id == nullptr ||
        object->hhandle != 0) {
        return;
    }
    _KTL_OBJECT *folder = GetParentObject(path);
    if (folder == nullptr || folder->hhandle == 0) {
        return;
    }
    libiusb_afc_file_close(houseOf(folder), object->file_handle);
    object->file_handle = 0;
    // Opens of a staged file don't count there; the one that made it does.
    const uint32_t share = object->type == KTL_STAGED ? 1 : object->open_count;
    const uint32_t count = folder->open_count;
    folder->open_count = count - std::min(count, share);
}

void freeXattrs(_KTL_OBJECT *object)
{
    while (object->xattr_list != nullptr) {
        _KTL_XATTR *node = object->xattr_list;
        object->xattr_list = node->next;
        free(node->name);
        free(node->value);
        free(node);
    }
}

// Everything of DeleteObject but the map.
void destroyObject(_KTL_OBJECT *object, libiusb_afc *afc)
{
    unfinished.erase(object);
    leftOut.erase(object);
    doubtful.erase(object);
    UnlinkObject(object);
    closeHandles(object, afc);
    free(object->file_name);
    free(object->app_id);
    free(object->device_path);
    freeXattrs(object);
    // Children that were not deleted first must not point into freed memory.
    _KTL_LIST *head = ChildList(object);
    while (head->next != head) {
        UnlinkObject(ObjectOfSibling(head->next));
    }
    delete object;
}

// Erases the entry under a key unless it has become another record's. True when
// it was the record's own.
bool eraseEntry(const std::string &key, const _KTL_OBJECT *object)
{
    const auto entry = Object_list.find(key);
    if (entry == Object_list.end() ||
        (entry->second != 0 && entry->second != toAddress(object))) {
        return false;
    }
    const bool own = entry->second != 0;
    Object_list.erase(entry);
    return own;
}

// Erases a record's entry wherever it is. For a record whose folder goes under
// another spelling than the one it was made under, which is rare enough to look
// at every entry.
void eraseStrayEntry(const _KTL_OBJECT *object)
{
    const auto entry = std::find_if(Object_list.begin(), Object_list.end(),
                                    [object](const auto &each) {
                                        return each.second == toAddress(object);
                                    });
    if (entry != Object_list.end()) {
        Object_list.erase(entry);
    }
}

bool isOpenOrStaged(const _KTL_OBJECT *object)
{
    return object->open_count > 0 || object->file_handle != 0 ||
           object->hhandle != 0 || object->type == KTL_STAGED;
}

std::string childPathOf(const char *path, const _KTL_OBJECT *child)
{
    const char *name = child->file_name;
    return ChildPath(path, name == nullptr ? "" : name);
}

// Calls `act` with every child and its path; it may delete the child.
template <typename Act>
void forEachChild(_KTL_LIST *head, const char *path, Act act)
{
    _KTL_LIST *at = head->next;
    while (at != head) {
        _KTL_LIST *next = at->next;
        _KTL_OBJECT *child = ObjectOfSibling(at);
        act(child, childPathOf(path, child));
        at = next;
    }
}

} // namespace

_KTL_LIST *ChildList(_KTL_OBJECT *object)
{
    static_assert(offsetof(_KTL_OBJECT, child_list) == 0);
    void *start = object;
    return static_cast<_KTL_LIST *>(start);
}

const _KTL_LIST *ChildList(const _KTL_OBJECT *object)
{
    const void *start = object;
    return static_cast<const _KTL_LIST *>(start);
}

_KTL_LIST *SiblingLink(_KTL_OBJECT *object)
{
    static_assert(offsetof(_KTL_OBJECT, sibling) == sizeof(_KTL_LIST));
    return ChildList(object) + 1;
}

const _KTL_LIST *SiblingLink(const _KTL_OBJECT *object)
{
    return ChildList(object) + 1;
}

bool HasChildren(const _KTL_OBJECT *object)
{
    const _KTL_LIST *head = ChildList(object);
    return head->next != head;
}

_KTL_OBJECT *ObjectOfSibling(_KTL_LIST *link)
{
    return static_cast<_KTL_OBJECT *>(static_cast<void *>(link - 1));
}

void LinkChild(_KTL_OBJECT *parent, _KTL_OBJECT *child)
{
    doubtful.erase(child); // whoever links it has just seen it
    UnlinkObject(child);
    _KTL_LIST *head = ChildList(parent);
    _KTL_LIST *link = SiblingLink(child);
    link->next = head;
    link->prev = head->prev;
    head->prev->next = link;
    head->prev = link;
}

void UnlinkObject(_KTL_OBJECT *object)
{
    _KTL_LIST *link = SiblingLink(object);
    link->prev->next = link->next;
    link->next->prev = link->prev;
    initList(link);
}

bool IsLinked(const _KTL_OBJECT *object)
{
    const _KTL_LIST *link = SiblingLink(object);
    return link->next != link;
}

void SetPresentTimes(_KTL_OBJECT *object)
{
    const time_t now = time(nullptr);
    object->birth_time = now;
    object->modify_time = now;
    object->access_time = now;
}

char *ReplaceString(char *old, const char *text)
{
    char *copy = text == nullptr ? nullptr : strdup(text);
    free(old);
    return copy;
}

_KTL_OBJECT *GetObject(const char *path)
{
    std::string key;
    if (!CatalogueKey(path, key)) {
        QNLog(3, "%s getUTF8MACName Failed, %s", "GetObject",
              LastComponent(path));
        key = path;
    }
    uint64_t &entry = Object_list[key];
    if (entry == 0) {
        entry = toAddress(makeObject());
    }
    return fromAddress(entry);
}

_KTL_OBJECT *GetObjectWithFileName(const char *path)
{
    _KTL_OBJECT *object = GetObject(path);
    if (object->file_name == nullptr) {
        object->file_name = strdup(LastComponent(path));
    }
    return object;
}

_KTL_OBJECT *FindObject(const char *path)
{
    const uint64_t exact = Object_list[path];
    if (exact != 0) {
        return fromAddress(exact);
    }
    std::string key;
    if (!CatalogueKey(path, key)) {
        QNLog(3, "%s getUTF8MACName Failed", "FindObject");
        return nullptr;
    }
    return fromAddress(Object_list[key]);
}

_KTL_OBJECT *GetParentObject(const char *path)
{
    const std::string_view text = path;
    const size_t slash = text.rfind('/');
    return FindObject(std::string(text.substr(0, slash)).c_str());
}

int EndHouseArrest(_KTL_OBJECT *folder)
{
    if (folder->hhandle == 0) {
        return 0;
    }
    const int ret = libiusb_housearrest_exit(houseOf(folder));
    if (ret == 0) {
        folder->hhandle = 0;
    }
    return ret;
}

int CloseHouseArrest(_KTL_OBJECT *folder)
{
    const int ret = EndHouseArrest(folder);
    if (ret != 0) {
        EndHouseArrest(folder);
        folder->hhandle = 0;
    }
    return ret;
}

void DeleteObject(_KTL_OBJECT *object, const char *path)
{
    _CONTEXT *context = nullptr;
    if (object == nullptr || getContext(&context) != 0) {
        return;
    }
    // The path may come out of the record itself.
    const std::string asGiven = path;
    closeThroughFolder(object, asGiven.c_str());
    std::string key;
    bool erased = CatalogueKey(asGiven.c_str(), key) && eraseEntry(key, object);
    erased = eraseEntry(asGiven, object) || erased;
    if (!erased) {
        eraseStrayEntry(object);
    }
    destroyObject(object, context->afc_handle);
}

void DeleteChildObject(_KTL_OBJECT *object, const char *path)
{
    forEachChild(ChildList(object), path,
                 [](_KTL_OBJECT *child, const std::string &childPath) {
                     if (child->mode == KTL_MODE_FOLDER) {
                         DeleteChildObject(child, childPath.c_str());
                     }
                     DeleteObject(child, childPath.c_str());
                 });
}

void CleanupTmpObject(const char *path, _KTL_LIST *list_head)
{
    forEachChild(list_head, path,
                 [](_KTL_OBJECT *child, const std::string &childPath) {
                     if (child->type == KTL_TEMPORARY) {
                         DeleteObject(child, childPath.c_str());
                     }
                 });
}

void ClearCatalogue(libiusb_afc *afc)
{
    for (const auto &entry : Object_list) {
        if (entry.second != 0) {
            destroyObject(fromAddress(entry.second), afc);
        }
    }
    Object_list.clear();
    unfinished.clear();
    leftOut.clear();
    doubtful.clear();
}

void NoteListing(const _KTL_OBJECT *folder, bool complete)
{
    if (complete) {
        unfinished.erase(folder);
    } else {
        unfinished.insert(folder);
    }
}

bool IsListingUnfinished(const _KTL_OBJECT *folder)
{
    return unfinished.contains(folder);
}

void NoteLeftOut(const _KTL_OBJECT *folder)
{
    leftOut.insert(folder);
}

bool HasLeftOut(const _KTL_OBJECT *folder)
{
    return leftOut.contains(folder);
}

bool HoldsOpenOrStaged(_KTL_OBJECT *object)
{
    if (isOpenOrStaged(object)) {
        return true;
    }
    const _KTL_LIST *head = ChildList(object);
    for (_KTL_LIST *at = head->next; at != head; at = at->next) {
        if (HoldsOpenOrStaged(ObjectOfSibling(at))) {
            return true;
        }
    }
    return false;
}

void NoteDoubtful(const char *path)
{
    const _KTL_OBJECT *folder = GetParentObject(path);
    _KTL_OBJECT *object = FindObject(path);
    if (folder != nullptr) {
        NoteListing(folder, false);
    }
    if (object != nullptr && !HoldsOpenOrStaged(object)) {
        doubtful.insert(object);
    }
}

bool IsDoubtful(const _KTL_OBJECT *object)
{
    return doubtful.contains(object);
}

void DropUnfinishedListing(const char *path)
{
    _KTL_OBJECT *folder = FindObject(path);
    if (folder == nullptr || !IsListingUnfinished(folder)) {
        return;
    }
    forEachChild(ChildList(folder), path,
                 [](_KTL_OBJECT *child, const std::string &childPath) {
                     if (HoldsOpenOrStaged(child)) {
                         return;
                     }
                     DeleteChildObject(child, childPath.c_str());
                     DeleteObject(child, childPath.c_str());
                 });
}
