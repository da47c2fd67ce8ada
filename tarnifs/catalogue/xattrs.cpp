#include "tarnifs/catalogue/xattrs.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"
#include "util/log.h"

namespace
{

bool isNamed(const _KTL_XATTR *node, const char *name)
{
    return node->name != nullptr && strcmp(node->name, name) == 0;
}

_KTL_XATTR *findOn(const _KTL_OBJECT *object, const char *name)
{
    if (object == nullptr || name == nullptr) {
        return nullptr;
    }
    return FindXattr(object->xattr_list, name);
}

void freeContents(_KTL_XATTR *node)
{
    free(node->name);
    free(node->value);
    node->name = nullptr;
    node->value = nullptr;
}

// The node to hold `name`: emptied when there is one, else new at the head.
_KTL_XATTR *takeNode(_KTL_OBJECT *object, const char *name)
{
    _KTL_XATTR *node = FindXattr(object->xattr_list, name);
    if (node != nullptr) {
        freeContents(node);
        return node;
    }
    node = static_cast<_KTL_XATTR *>(calloc(1, sizeof(_KTL_XATTR)));
    if (node != nullptr) {
        node->next = object->xattr_list;
        object->xattr_list = node;
    }
    return node;
}

int setContents(_KTL_XATTR *node, const char *name, const char *value,
                size_t size)
{
    node->name = static_cast<char *>(calloc(1, strlen(name) + 1));
    if (node->name == nullptr) {
        QNLog(3, "%s alloc xattr name failed. name : %s", "tarnifs_setxattr",
              name);
        return -ENOMEM;
    }
    node->value =
        size == SIZE_MAX ? nullptr : static_cast<char *>(calloc(1, size + 1));
    if (node->value == nullptr) {
        // Values are bytes, not text: what is shown of one ends early.
        char shown[64] = {};
        memcpy(shown, value, strnlen(value, std::min(size, sizeof(shown) - 1)));
        QNLog(3, "%s alloc xattr value failed. value : %s", "tarnifs_setxattr",
              shown);
        return -ENOMEM;
    }
    memcpy(node->name, name, strlen(name));
    memcpy(node->value, value, size);
    return 0;
}

} // namespace

_KTL_XATTR *FindXattr(_KTL_XATTR *list_head, const char *name)
{
    for (_KTL_XATTR *node = list_head; node != nullptr; node = node->next) {
        if (isNamed(node, name)) {
            return node;
        }
    }
    return nullptr;
}

int tarnifs_getxattr(const char *path, const char *name, char *value,
                     size_t size, uint32_t)
{
    const TarniLock lock;
    if (strcmp(path, "/") == 0) {
        return 0;
    }
    const _KTL_XATTR *node = findOn(FindObject(path), name);
    if (node == nullptr || node->value == nullptr) {
        return -TARNI_ENOATTR;
    }
    const size_t length = strlen(node->value);
    if (value == nullptr) {
        return static_cast<int>(length);
    }
    memset(value, 0, size);
    memcpy(value, node->value, std::min(size, length));
    return static_cast<int>(size);
}

int tarnifs_setxattr(const char *path, const char *name, const char *value,
                     size_t size, int, uint32_t)
{
    const TarniLock lock;
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr || name == nullptr || value == nullptr) {
        return -TARNI_ENOATTR;
    }
    _KTL_XATTR *node = takeNode(object, name);
    if (node == nullptr) {
        return -ENOMEM;
    }
    return setContents(node, name, value, size);
}

int tarnifs_removexattr(const char *path, const char *name)
{
    const TarniLock lock;
    _KTL_OBJECT *object = FindObject(path);
    _KTL_XATTR *node = findOn(object, name);
    if (node == nullptr) {
        return -TARNI_ENOATTR;
    }
    if (object->xattr_list == node) {
        object->xattr_list = node->next;
    } else {
        _KTL_XATTR *before = object->xattr_list;
        while (before->next != node) {
            before = before->next;
        }
        before->next = node->next;
    }
    freeContents(node);
    free(node);
    return 0;
}
