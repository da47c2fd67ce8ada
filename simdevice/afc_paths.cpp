#include "simdevice/afc_paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace sim
{

namespace
{

struct Freed {
    void operator()(char *text) const { std::free(text); }
};
using OwnedText = std::unique_ptr<char, Freed>;

bool isInside(const std::string &root, const std::string &path)
{
    return path == root || (path.size() > root.size() &&
                            path.starts_with(root) && path[root.size()] == '/');
}

// Replaces a link by what it leads to.
uint64_t followLink(const AfcRoot &root, std::string &path)
{
    const OwnedText rootTarget(realpath(root.folder.c_str(), nullptr));
    const OwnedText target(realpath(path.c_str(), nullptr));
    if (!rootTarget || !target) {
        return afcStatusOf(errno);
    }
    if (!isInside(rootTarget.get(), target.get())) {
        return kAfcPermissionDenied;
    }
    path = target.get();
    return kAfcSuccess;
}

} // namespace

PathParts splitPath(const std::string &path)
{
    PathParts parts;
    size_t begin = 0;
    while (begin <= path.size()) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const std::string part = path.substr(begin, end - begin);
        if (part == "..") {
            if (!parts.empty()) {
                parts.pop_back();
            }
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        begin = end + 1;
    }
    return parts;
}

uint64_t locate(const AfcRoot &root, const PathParts &parts, LastPart last,
                std::string &full)
{
    full = root.folder;
    if (root.documentsOnly && !parts.empty() && parts[0] != "Documents") {
        return kAfcPermissionDenied;
    }
    for (size_t i = 0; i < parts.size(); i++) {
        const bool isLast = i + 1 == parts.size();
        full += '/';
        full += parts[i];
        if (isLast && last == LastPart::keep) {
            break;
        }
        struct stat info = {};
        if (lstat(full.c_str(), &info) != 0) {
            return isLast && errno == ENOENT ? kAfcSuccess : afcStatusOf(errno);
        }
        if (S_ISLNK(info.st_mode)) {
            const uint64_t status = followLink(root, full);
            if (status != kAfcSuccess) {
                return status;
            }
        } else if (!isLast && !S_ISDIR(info.st_mode)) {
            return kAfcReadError;
        }
    }
    return kAfcSuccess;
}

bool isFixed(const AfcRoot &root, const PathParts &parts)
{
    return parts.empty() || (root.documentsOnly && parts.size() == 1);
}

} // namespace sim
