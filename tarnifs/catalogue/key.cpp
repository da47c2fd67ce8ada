#include "tarnifs/catalogue/key.h"

#include <cstring>

#include "tarnifs/mount/context.h"
#include "tarnifs/names/encoding.h"

const char *LastComponent(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

bool CatalogueKey(const char *path, std::string &key)
{
    const char *component = LastComponent(path);
    if (gEncodedPath == nullptr || strlen(component) >= ENCODED_PATH_SIZE) {
        return false;
    }
    memset(gEncodedPath, 0, ENCODED_PATH_SIZE);
    if (getUTF8MACName(component, gEncodedPath) < 0) {
        return false;
    }
    const char *slash = strrchr(path, '/');
    key.assign(path, slash == nullptr ? 0 : static_cast<size_t>(slash - path));
    key += '/';
    key += gEncodedPath;
    return true;
}
