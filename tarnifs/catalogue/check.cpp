// What must always hold of the catalogue, in one place. Slow; for tests and
// debug builds.
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "tarnifs/catalogue/key.h"
#include "tarnifs/catalogue/object.h"

namespace
{

constexpr uint32_t MANY_HANDLES = 1U << 20; // more means a count went below 0

struct CHECK {
    std::unordered_map<const _KTL_OBJECT *, std::string> keys;
    std::unordered_set<const _KTL_OBJECT *> listed;
    std::unordered_set<const void *> strings;
    std::string fault;

    bool fail(const std::string &what, const std::string &key)
    {
        fault = what + ": " + key;
        return false;
    }
};

bool checkKeys(CHECK &check)
{
    for (const auto &entry : Object_list) {
        const auto *object = reinterpret_cast<_KTL_OBJECT *>(entry.second);
        if (object != nullptr &&
            !check.keys.emplace(object, entry.first).second) {
            return check.fail("a record under two keys", entry.first);
        }
    }
    return true;
}

bool checkString(CHECK &check, const char *text, const std::string &key)
{
    if (text != nullptr && !check.strings.insert(text).second) {
        return check.fail("a string owned twice", key);
    }
    return true;
}

bool checkFields(CHECK &check, const _KTL_OBJECT *object,
                 const std::string &key)
{
    if (object->mode != KTL_MODE_FILE && object->mode != KTL_MODE_FOLDER) {
        return check.fail("a mode that is neither file nor folder", key);
    }
    if (object->open_count > MANY_HANDLES) {
        return check.fail("a count below 0", key);
    }
    if (object->writing > 1 || object->reading > 1 || object->enumerated > 1) {
        return check.fail("a flag that is neither 0 nor 1", key);
    }
    for (const _KTL_XATTR *node = object->xattr_list; node != nullptr;
         node = node->next) {
        if (!checkString(check, node->name, key) ||
            !checkString(check, node->value, key)) {
            return false;
        }
    }
    return checkString(check, object->file_name, key) &&
           checkString(check, object->app_id, key) &&
           checkString(check, object->device_path, key);
}

// Whether a key lies directly below a folder's. The folder part of a key is in
// the spelling it was given in, the folder's own key is canonical.
bool liesBelow(const std::string &key, const std::string &folderKey)
{
    const std::string folder = key.substr(0, key.rfind('/'));
    std::string canonical;
    return folder == folderKey ||
           (CatalogueKey(folder.c_str(), canonical) && canonical == folderKey);
}

bool checkChild(CHECK &check, const _KTL_OBJECT *child,
                const std::string &folderKey)
{
    const auto known = check.keys.find(child);
    if (known == check.keys.end()) {
        return check.fail("a child that the map does not hold, in", folderKey);
    }
    if (!check.listed.insert(child).second) {
        return check.fail("a child listed twice", known->second);
    }
    if (child->file_name == nullptr) {
        return check.fail("a child without a name", known->second);
    }
    if (!liesBelow(known->second, folderKey)) {
        return check.fail("a child of the wrong folder " + folderKey,
                          known->second);
    }
    return true;
}

bool checkChildren(CHECK &check, _KTL_OBJECT *folder, const std::string &key)
{
    const _KTL_LIST *head = ChildList(folder);
    if (head->next->prev != head || head->prev->next != head) {
        return check.fail("a broken child list", key);
    }
    for (_KTL_LIST *at = head->next; at != head; at = at->next) {
        if (at->next->prev != at || at->prev->next != at) {
            return check.fail("a broken link in the list of", key);
        }
        if (!checkChild(check, ObjectOfSibling(at), key)) {
            return false;
        }
    }
    return true;
}

bool checkRecords(CHECK &check)
{
    for (const auto &entry : Object_list) {
        auto *object = reinterpret_cast<_KTL_OBJECT *>(entry.second);
        if (object != nullptr && (!checkFields(check, object, entry.first) ||
                                  !checkChildren(check, object, entry.first))) {
            return false;
        }
    }
    return true;
}

// After checkRecords: whoever claims to be in a list was seen in one.
bool checkOrphans(CHECK &check)
{
    for (const auto &known : check.keys) {
        if (IsLinked(known.first) && !check.listed.contains(known.first)) {
            return check.fail("a record in a list of nobody's", known.second);
        }
    }
    return true;
}

} // namespace

std::string CheckCatalogue()
{
    CHECK check;
    if (checkKeys(check) && checkRecords(check)) {
        checkOrphans(check);
    }
    return check.fault;
}
