// The key under which the catalogue holds a path: the folder's path as given,
// "/", and the last component in its canonical spelling.
#pragma once

#include <string>

// The text after the last "/" of a path.
const char *LastComponent(const char *path);

// The key of a path, made in gEncodedPath. False when the last component can't
// be converted: no valid UTF-8, too long for the buffer, or no buffer (there is
// no mount).
bool CatalogueKey(const char *path, std::string &key);
