#include "helper/copy_target.h"

#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>

namespace helper
{

namespace
{

constexpr mode_t EVERYBODY = 0666;    // less the mask of the user
constexpr size_t LONGEST_NAME = 255;  // bytes, on the file systems of hosts
constexpr size_t PARTIAL_SUFFIX = 40; // bytes, no more

bool inOnePiece(const CopyFile &file)
{
    return !file.replaces && file.size <= COPY_PIECE;
}

} // namespace

std::string partialName(const CopyFile &file)
{
    const size_t slash = file.target.find_last_of('/') + 1;
    std::string name = file.target.substr(slash);
    if (name.size() > LONGEST_NAME - PARTIAL_SUFFIX) {
        name.resize(LONGEST_NAME - PARTIAL_SUFFIX);
        while (!name.empty() && (name.back() & 0xC0) == 0x80) {
            name.pop_back(); // not in the middle of a character
        }
    }
    char suffix[PARTIAL_SUFFIX + 16];
    snprintf(suffix, sizeof(suffix), ".%" PRIx64 "-%" PRIx64 ".part", file.size,
             static_cast<uint64_t>(file.time.tv_sec));
    return file.target.substr(0, slash) + name + suffix;
}

uint64_t partialSize(const CopyFile &file)
{
    struct stat st {
    };
    if (inOnePiece(file) || lstat(partialName(file).c_str(), &st) != 0 ||
        !S_ISREG(st.st_mode)) {
        return 0;
    }
    const auto size = static_cast<uint64_t>(st.st_size);
    return size <= file.size ? size : 0;
}

int CopyTarget::begin(const CopyFile &what, uint64_t offset, bool device)
{
    file = what;
    to_device = device;
    written = offset;
    path = inOnePiece(file) ? file.target : partialName(file);
    // A new file must be new: what came there since it was looked at stays.
    const int flags = path == file.target ? O_CREAT | O_EXCL
                      : offset == 0       ? O_CREAT | O_TRUNC
                                          : 0;
    fd.reset(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | flags,
                  EVERYBODY));
    if (!fd.open()) {
        return errno;
    }
    if (offset > 0 &&
        lseek(fd.get(), static_cast<off_t>(offset), SEEK_SET) < 0) {
        return errno;
    }
    return 0;
}

int CopyTarget::write(const char *data, size_t length)
{
    while (length > 0) {
        const ssize_t n = ::write(fd.get(), data, length);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return n < 0 ? errno : EIO;
        }
        data += n;
        length -= static_cast<size_t>(n);
        written += static_cast<uint64_t>(n);
    }
    return 0;
}

int CopyTarget::closeAndName()
{
    if (::close(fd.release()) != 0) {
        return errno;
    }
    if (path != file.target && rename(path.c_str(), file.target.c_str()) != 0) {
        return errno;
    }
    return 0;
}

int CopyTarget::finish(uint64_t *actual)
{
    struct stat st {
    };
    if (fstat(fd.get(), &st) != 0) {
        return errno;
    }
    *actual = static_cast<uint64_t>(st.st_size);
    if (*actual != file.size || written != file.size) {
        return EIO;
    }
    if (!to_device) {
        const timespec times[2] = {{0, UTIME_NOW}, file.time};
        if (futimens(fd.get(), times) != 0) {
            return errno;
        }
    }
    return closeAndName();
}

void CopyTarget::abandon(bool keep)
{
    if (!fd.open()) {
        return;
    }
    fd.reset();
    const bool partial = path != file.target;
    if (!partial || !keep || written == 0) {
        unlink(path.c_str());
    }
}

} // namespace helper
