// AFC operations that tell about files and the device.

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "simdevice/afc_server.h"

namespace sim
{

namespace
{

void addPair(std::string &bytes, const char *key, const std::string &value)
{
    bytes.append(key).push_back('\0');
    bytes.append(value).push_back('\0');
}

const char *formatName(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return "S_IFDIR";
    case S_IFLNK:
        return "S_IFLNK";
    case S_IFBLK:
        return "S_IFBLK";
    case S_IFCHR:
        return "S_IFCHR";
    case S_IFIFO:
        return "S_IFIFO";
    case S_IFSOCK:
        return "S_IFSOCK";
    default:
        return "S_IFREG";
    }
}

int64_t nanoseconds(const statx_timestamp &time)
{
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// A folder's size counts its entries, as on the device; here only folders in it
// are cheap to count.
uint64_t shownSize(const struct statx &info)
{
    return S_ISDIR(info.stx_mode) ? info.stx_nlink * uint64_t{32}
                                  : info.stx_size;
}

std::string linkTarget(const std::string &full)
{
    char target[4096];
    const ssize_t n = readlink(full.c_str(), target, sizeof target);
    return n > 0 ? std::string(target, static_cast<size_t>(n)) : std::string();
}

// A birth time after the modification time is corrected to it, as the device's
// file system does when older files are copied in.
int64_t birthTime(const struct statx &info)
{
    const int64_t modified = nanoseconds(info.stx_mtime);
    return (info.stx_mask & STATX_BTIME) != 0
               ? std::min(modified, nanoseconds(info.stx_btime))
               : modified;
}

} // namespace

AfcReply afcGetFileInfo(AfcSession &session, AfcRequest &request)
{
    std::string full;
    const uint64_t status =
        locate(session.root, splitPath(afcText(request.fixed, 0)),
               LastPart::keep, full);
    if (status != kAfcSuccess) {
        return afcStatus(status);
    }
    struct statx info = {};
    if (statx(AT_FDCWD, full.c_str(), AT_SYMLINK_NOFOLLOW,
              STATX_BASIC_STATS | STATX_BTIME, &info) != 0) {
        return afcStatus(afcStatusOf(errno));
    }
    std::string bytes;
    addPair(bytes, "st_size", std::to_string(shownSize(info)));
    addPair(bytes, "st_blocks", std::to_string(info.stx_blocks));
    addPair(bytes, "st_nlink", std::to_string(info.stx_nlink));
    addPair(bytes, "st_ifmt", formatName(info.stx_mode));
    if (S_ISLNK(info.stx_mode)) {
        addPair(bytes, "LinkTarget", linkTarget(full));
    }
    addPair(bytes, "st_mtime", std::to_string(nanoseconds(info.stx_mtime)));
    addPair(bytes, "st_birthtime", std::to_string(birthTime(info)));
    return afcData(bytes);
}

AfcReply afcGetDeviceInfo(AfcSession &session, AfcRequest &)
{
    const Device &device = session.connection.device;
    const Identity &identity = device.identity;
    std::string bytes;
    addPair(bytes, "Model", identity.productType);
    addPair(bytes, "FSTotalBytes", std::to_string(identity.capacity));
    addPair(bytes, "FSFreeBytes", std::to_string(device.space.free()));
    addPair(bytes, "FSBlockSize", std::to_string(identity.blockSize));
    return afcData(bytes);
}

AfcReply afcGetConnectionInfo(AfcSession &session, AfcRequest &)
{
    const Identity &identity = session.connection.device.identity;
    std::string bytes;
    addPair(bytes, "FSBlockSize", std::to_string(identity.blockSize));
    addPair(bytes, "SocketBlockSize", std::to_string(8 * 1024 * 1024));
    return afcData(bytes);
}

AfcReply afcSetModTime(AfcSession &session, AfcRequest &request)
{
    const uint64_t time = afcNumber(request.fixed, 0);
    std::string full;
    const uint64_t status =
        locate(session.root, splitPath(afcText(request.fixed, 8)),
               LastPart::follow, full);
    if (status != kAfcSuccess) {
        return afcStatus(status);
    }
    const timespec times[2] = {{0, UTIME_OMIT},
                               {static_cast<time_t>(time / 1'000'000'000),
                                static_cast<long>(time % 1'000'000'000)}};
    const int result = utimensat(AT_FDCWD, full.c_str(), times, 0);
    return afcStatus(result == 0 ? uint64_t{kAfcSuccess} : afcStatusOf(errno));
}

// SHA-1 of the content.
AfcReply afcGetFileHash(AfcSession &session, AfcRequest &request)
{
    std::string full;
    const uint64_t status =
        locate(session.root, splitPath(afcText(request.fixed, 0)),
               LastPart::follow, full);
    if (status != kAfcSuccess) {
        return afcStatus(status);
    }
    const int fd = open(full.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return afcStatus(afcStatusOf(errno));
    }
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha1(), nullptr);
    char piece[16384];
    ssize_t n = 0;
    while ((n = read(fd, piece, sizeof piece)) > 0) {
        EVP_DigestUpdate(context, piece, static_cast<size_t>(n));
    }
    const int error = errno;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context, digest, &length);
    EVP_MD_CTX_free(context);
    close(fd);
    return n < 0 ? afcStatus(afcStatusOf(error))
                 : afcData(std::string(digest, digest + length));
}

// Hints that change nothing here.
AfcReply afcSetBlockSize(AfcSession &, AfcRequest &)
{
    return afcStatus(kAfcSuccess);
}

// Real devices say "not found" for most paths of the media file system.
AfcReply afcGetSizeOfContents(AfcSession &, AfcRequest &)
{
    return afcStatus(kAfcObjectNotFound);
}

} // namespace sim
