// AFC operations on the tree of names.

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "simdevice/afc_server.h"

namespace sim
{

namespace
{

struct DirCloser {
    void operator()(DIR *dir) const { closedir(dir); }
};
using Directory = std::unique_ptr<DIR, DirCloser>;

AfcReply statusOfCall(int result)
{
    return afcStatus(result == 0 ? uint64_t{kAfcSuccess} : afcStatusOf(errno));
}

// The order in which a device lists names is that of a hash of the name: stable
// and neither alphabetic nor by age.
uint64_t nameHash(const std::string &name)
{
    uint64_t hash = 0xCBF29CE484222325;
    for (const char c : name) {
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    }
    return hash;
}

std::vector<std::string> namesIn(DIR *dir)
{
    std::vector<std::pair<uint64_t, std::string>> names;
    // The stream is this thread's own. NOLINTNEXTLINE(concurrency-mt-unsafe)
    while (const dirent *entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") {
            const uint64_t hash = nameHash(name);
            names.emplace_back(hash, std::move(name));
        }
    }
    std::sort(names.begin(), names.end());
    std::vector<std::string> sorted;
    sorted.reserve(names.size());
    for (auto &[hash, name] : names) {
        sorted.push_back(std::move(name));
    }
    return sorted;
}

void addExtraNames(Simulator &simulator, std::vector<std::string> &names)
{
    const std::lock_guard lock(simulator.mutex);
    if (simulator.extraNames.on) {
        names.insert(names.end(), simulator.extraNames.names.begin(),
                     simulator.extraNames.names.end());
    }
}

std::string joinNames(const std::vector<std::string> &names)
{
    std::string bytes;
    for (const char *name : {".", ".."}) {
        bytes.append(name).push_back('\0');
    }
    for (const std::string &name : names) {
        bytes.append(name).push_back('\0');
    }
    return bytes;
}

uint64_t removeOne(AfcSession &session, const std::string &full)
{
    Device &device = session.connection.device;
    struct stat info = {};
    if (lstat(full.c_str(), &info) != 0) {
        return afcStatusOf(errno);
    }
    if (S_ISDIR(info.st_mode)) {
        return rmdir(full.c_str()) == 0 ? uint64_t{kAfcSuccess}
                                        : afcStatusOf(errno);
    }
    if (unlink(full.c_str()) != 0) {
        return afcStatusOf(errno);
    }
    if (S_ISREG(info.st_mode) && info.st_nlink == 1) {
        device.space.grow(static_cast<uint64_t>(info.st_size), 0,
                          device.identity.blockSize);
    }
    return kAfcSuccess;
}

uint64_t removeTree(AfcSession &session, const std::string &full)
{
    struct stat info = {};
    if (lstat(full.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        std::vector<std::string> names;
        if (const Directory dir{opendir(full.c_str())}) {
            names = namesIn(dir.get());
        }
        for (const std::string &name : names) {
            std::string inside = full;
            inside.append("/").append(name);
            const uint64_t status = removeTree(session, inside);
            if (status != kAfcSuccess) {
                return status;
            }
        }
    }
    return removeOne(session, full);
}

using Remover = uint64_t (*)(AfcSession &, const std::string &);

AfcReply removeWith(AfcSession &session, const AfcRequest &request,
                    Remover remover)
{
    const PathParts parts = splitPath(afcText(request.fixed, 0));
    if (isFixed(session.root, parts)) {
        return afcStatus(kAfcPermissionDenied);
    }
    std::string full;
    const uint64_t status = locate(session.root, parts, LastPart::keep, full);
    return afcStatus(status != kAfcSuccess ? status : remover(session, full));
}

// The size of a regular file that a rename is about to replace.
uint64_t replacedSize(const std::string &from, const std::string &to)
{
    struct stat source = {};
    struct stat target = {};
    if (lstat(from.c_str(), &source) != 0 || lstat(to.c_str(), &target) != 0 ||
        !S_ISREG(target.st_mode) || target.st_nlink != 1 ||
        (source.st_ino == target.st_ino && source.st_dev == target.st_dev)) {
        return 0;
    }
    return static_cast<uint64_t>(target.st_size);
}

} // namespace

AfcReply afcReadDir(AfcSession &session, AfcRequest &request)
{
    const PathParts parts = splitPath(afcText(request.fixed, 0));
    if (session.root.documentsOnly && parts.empty()) {
        return afcData(joinNames({"Documents"}));
    }
    std::string full;
    const uint64_t status = locate(session.root, parts, LastPart::follow, full);
    if (status != kAfcSuccess) {
        return afcStatus(status);
    }
    const Directory dir(opendir(full.c_str()));
    if (!dir) {
        return afcStatus(afcStatusOf(errno));
    }
    std::vector<std::string> names = namesIn(dir.get());
    addExtraNames(session.connection.simulator, names);
    return afcData(joinNames(names));
}

AfcReply afcRemovePath(AfcSession &session, AfcRequest &request)
{
    return removeWith(session, request, removeOne);
}

AfcReply afcRemoveTree(AfcSession &session, AfcRequest &request)
{
    return removeWith(session, request, removeTree);
}

// Makes missing parents too; a folder that is there already is a success.
AfcReply afcMakeDir(AfcSession &session, AfcRequest &request)
{
    const PathParts parts = splitPath(afcText(request.fixed, 0));
    PathParts made;
    for (const std::string &part : parts) {
        made.push_back(part);
        std::string full;
        const uint64_t status =
            locate(session.root, made, LastPart::follow, full);
        if (status == kAfcReadError) {
            return afcStatus(kAfcObjectExists); // a parent is a file
        }
        if (status != kAfcSuccess) {
            return afcStatus(status);
        }
        struct stat info = {};
        if (mkdir(full.c_str(), 0755) != 0 &&
            (errno != EEXIST || stat(full.c_str(), &info) != 0 ||
             !S_ISDIR(info.st_mode))) {
            return afcStatus(afcStatusOf(errno));
        }
    }
    return afcStatus(kAfcSuccess);
}

AfcReply afcRename(AfcSession &session, AfcRequest &request)
{
    const std::string from = afcText(request.fixed, 0);
    const PathParts fromParts = splitPath(from);
    const PathParts toParts =
        splitPath(afcText(request.fixed, from.size() + 1));
    if (isFixed(session.root, fromParts) || isFixed(session.root, toParts)) {
        return afcStatus(kAfcPermissionDenied);
    }
    std::string fromFull;
    std::string toFull;
    uint64_t status = locate(session.root, fromParts, LastPart::keep, fromFull);
    if (status == kAfcSuccess) {
        status = locate(session.root, toParts, LastPart::keep, toFull);
    }
    if (status != kAfcSuccess) {
        return afcStatus(status);
    }
    const uint64_t replaced = replacedSize(fromFull, toFull);
    if (rename(fromFull.c_str(), toFull.c_str()) != 0) {
        return afcStatus(afcStatusOf(errno));
    }
    Device &device = session.connection.device;
    device.space.grow(replaced, 0, device.identity.blockSize);
    return afcStatus(kAfcSuccess);
}

AfcReply afcMakeLink(AfcSession &session, AfcRequest &request)
{
    const uint64_t type = afcNumber(request.fixed, 0);
    const std::string target = afcText(request.fixed, 8);
    const std::string name = afcText(request.fixed, 8 + target.size() + 1);
    std::string full;
    uint64_t status =
        locate(session.root, splitPath(name), LastPart::keep, full);
    if (status != kAfcSuccess) {
        return afcStatus(status);
    }
    if (type == 2) {
        return statusOfCall(symlink(target.c_str(), full.c_str()));
    }
    if (type != 1) {
        return afcStatus(kAfcInvalidArgument);
    }
    std::string targetFull;
    status =
        locate(session.root, splitPath(target), LastPart::keep, targetFull);
    return status == kAfcSuccess
               ? statusOfCall(link(targetFull.c_str(), full.c_str()))
               : afcStatus(status);
}

} // namespace sim
