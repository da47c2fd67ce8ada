// AFC operations on open files. A handle is an open file of the host, with its
// one position.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "simdevice/afc_server.h"

namespace sim
{

namespace
{

constexpr size_t kPiece = size_t{256} * 1024;

// Flags for the modes 1 to 6. Cutting is done separately, to keep account of
// the space.
struct OpenMode {
    int flags;
    bool cut;
};

constexpr OpenMode kOpenModes[] = {
    {O_RDONLY, false},
    {O_RDWR | O_CREAT, false},
    {O_WRONLY | O_CREAT, true},
    {O_RDWR | O_CREAT, true},
    {O_WRONLY | O_APPEND | O_CREAT, false},
    {O_RDWR | O_APPEND | O_CREAT, false},
};

AfcReply statusOfCall(int result)
{
    return afcStatus(result == 0 ? uint64_t{kAfcSuccess} : afcStatusOf(errno));
}

// The descriptor of a handle, or -1.
int findFile(const AfcSession &session, const AfcRequest &request)
{
    const auto found = session.files.find(afcNumber(request.fixed, 0));
    return found != session.files.end() ? found->second : -1;
}

uint64_t sizeOf(int fd)
{
    struct stat info = {};
    return fstat(fd, &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

// Changes the size of an open file and keeps account of the space.
uint64_t resize(Device &device, int fd, uint64_t size)
{
    const uint64_t before = sizeOf(fd);
    const uint64_t block = device.identity.blockSize;
    if (size > INT64_MAX) {
        return kAfcInvalidArgument;
    }
    if (!device.space.grow(before, size, block)) {
        return kAfcNoSpaceLeft;
    }
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
        const int error = errno;
        device.space.grow(size, before, block);
        return afcStatusOf(error);
    }
    return kAfcSuccess;
}

// Opens a regular file. On failure -1 and a status.
int openRegular(AfcSession &session, const std::string &full,
                const OpenMode &mode, uint64_t &status)
{
    const int fd =
        open(full.c_str(), mode.flags | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) {
        status = afcStatusOf(errno);
        return -1;
    }
    struct stat info = {};
    fstat(fd, &info);
    status = kAfcSuccess;
    if (S_ISDIR(info.st_mode)) {
        status = kAfcObjectIsDir;
    } else if (!S_ISREG(info.st_mode)) {
        status = kAfcPermissionDenied;
    } else if (mode.cut) {
        status = resize(session.connection.device, fd, 0);
    }
    if (status != kAfcSuccess) {
        close(fd);
        return -1;
    }
    return fd;
}

// Where the next write goes.
uint64_t writePosition(int fd)
{
    if ((fcntl(fd, F_GETFL) & O_APPEND) != 0) {
        return sizeOf(fd);
    }
    const off_t position = lseek(fd, 0, SEEK_CUR);
    return position < 0 ? 0 : static_cast<uint64_t>(position);
}

// Writes a piece; the error number, or 0.
int writeAll(int fd, const char *bytes, size_t size)
{
    while (size > 0) {
        const ssize_t n = write(fd, bytes, size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return n < 0 ? errno : EIO;
        }
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return 0;
}

// Takes the bulk off the stream into the file; the error number, or 0.
int writeBulk(AfcSession &session, AfcRequest &request, int fd)
{
    Connection &connection = session.connection;
    const Buffer piece =
        newBuffer(std::min<uint64_t>(request.bulkLeft, kPiece));
    while (request.bulkLeft > 0) {
        const size_t n = std::min<uint64_t>(request.bulkLeft, piece.size);
        if (!connection.stream.read(piece.data.get(), n)) {
            return EIO;
        }
        request.bulkLeft -= n;
        const int error =
            writeAll(fd, reinterpret_cast<char *>(piece.data.get()), n);
        if (error != 0) {
            return error;
        }
        connection.simulator.statistics.bytesWritten += n;
    }
    return 0;
}

} // namespace

AfcReply afcOpen(AfcSession &session, AfcRequest &request)
{
    Simulator &simulator = session.connection.simulator;
    const uint64_t mode = afcNumber(request.fixed, 0);
    if (mode < 1 || mode > std::size(kOpenModes)) {
        return afcStatus(kAfcInvalidArgument);
    }
    if (session.files.size() >= simulator.options.maxFiles) {
        return afcStatus(kAfcNoResources);
    }
    std::string full;
    uint64_t status = locate(session.root, splitPath(afcText(request.fixed, 8)),
                             LastPart::follow, full);
    if (status != kAfcSuccess) {
        return afcStatus(status);
    }
    const int fd = openRegular(session, full, kOpenModes[mode - 1], status);
    if (fd < 0) {
        return afcStatus(status);
    }
    const uint64_t handle = session.nextFile++;
    session.files[handle] = fd;
    simulator.statistics.openFiles++;
    AfcReply reply;
    reply.operation = kAfcFileRefOpenResult;
    reply.fixed = afcNumberBytes(handle);
    return reply;
}

AfcReply afcRead(AfcSession &session, AfcRequest &request)
{
    const int fd = findFile(session, request);
    if (fd < 0 || (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY) {
        return afcStatus(kAfcInvalidArgument);
    }
    const auto position = static_cast<uint64_t>(lseek(fd, 0, SEEK_CUR));
    const uint64_t size = sizeOf(fd);
    uint64_t length = afcNumber(request.fixed, 8);
    length = std::min(length, size > position ? size - position : 0);
    if (session.plan.shortRead && length > 1) {
        length /= 2;
    }
    AfcReply reply;
    reply.operation = kAfcData;
    if (length > 0 && !session.plan.zeroRead) {
        reply.fd = fd;
        reply.fileBytes = length;
        session.connection.simulator.statistics.bytesRead += length;
    }
    return reply;
}

// A whole file by its path.
AfcReply afcReadFile(AfcSession &session, AfcRequest &request)
{
    std::string full;
    uint64_t status = locate(session.root, splitPath(afcText(request.fixed, 0)),
                             LastPart::follow, full);
    const int fd = status == kAfcSuccess
                       ? openRegular(session, full, kOpenModes[0], status)
                       : -1;
    if (fd < 0) {
        return afcStatus(status);
    }
    // Nobody asks for large files this way.
    std::string bytes(
        std::min<uint64_t>(sizeOf(fd), uint64_t{64} * 1024 * 1024), '\0');
    const ssize_t n = read(fd, bytes.data(), bytes.size());
    bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
    close(fd);
    session.connection.simulator.statistics.bytesRead += bytes.size();
    return afcData(std::move(bytes));
}

AfcReply afcWrite(AfcSession &session, AfcRequest &request)
{
    Device &device = session.connection.device;
    const int fd = findFile(session, request);
    if (fd < 0 || (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY) {
        return afcStatus(kAfcInvalidArgument);
    }
    const uint64_t block = device.identity.blockSize;
    const uint64_t before = sizeOf(fd);
    const uint64_t end = writePosition(fd) + request.bulkLeft;
    const uint64_t after = std::max(before, end);
    if (!device.space.grow(before, after, block)) {
        return afcStatus(kAfcNoSpaceLeft);
    }
    const int error = writeBulk(session, request, fd);
    device.space.grow(after, sizeOf(fd), block);
    return afcStatus(error == 0 ? uint64_t{kAfcSuccess} : afcStatusOf(error));
}

AfcReply afcSeek(AfcSession &session, AfcRequest &request)
{
    const int fd = findFile(session, request);
    const uint64_t whence = afcNumber(request.fixed, 8);
    constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (fd < 0 || whence >= std::size(kWhence)) {
        return afcStatus(kAfcInvalidArgument);
    }
    const auto offset = static_cast<off_t>(afcNumber(request.fixed, 16));
    return statusOfCall(lseek(fd, offset, kWhence[whence]) < 0 ? -1 : 0);
}

AfcReply afcTell(AfcSession &session, AfcRequest &request)
{
    const int fd = findFile(session, request);
    if (fd < 0) {
        return afcStatus(kAfcInvalidArgument);
    }
    AfcReply reply;
    reply.operation = kAfcFileRefTellResult;
    reply.fixed = afcNumberBytes(static_cast<uint64_t>(lseek(fd, 0, SEEK_CUR)));
    return reply;
}

AfcReply afcClose(AfcSession &session, AfcRequest &request)
{
    const int fd = findFile(session, request);
    if (fd < 0) {
        return afcStatus(kAfcInvalidArgument);
    }
    close(fd);
    session.files.erase(afcNumber(request.fixed, 0));
    session.connection.simulator.statistics.openFiles--;
    return afcStatus(kAfcSuccess);
}

AfcReply afcSetFileSize(AfcSession &session, AfcRequest &request)
{
    const int fd = findFile(session, request);
    if (fd < 0) {
        return afcStatus(kAfcInvalidArgument);
    }
    return afcStatus(
        resize(session.connection.device, fd, afcNumber(request.fixed, 8)));
}

AfcReply afcTruncate(AfcSession &session, AfcRequest &request)
{
    std::string full;
    uint64_t status = locate(session.root, splitPath(afcText(request.fixed, 8)),
                             LastPart::follow, full);
    if (status == kAfcSuccess) {
        const int fd = openRegular(session, full, {O_WRONLY, false}, status);
        if (fd >= 0) {
            status = resize(session.connection.device, fd,
                            afcNumber(request.fixed, 0));
            close(fd);
        }
    }
    return afcStatus(status);
}

AfcReply afcLock(AfcSession &session, AfcRequest &request)
{
    const int fd = findFile(session, request);
    int operation = -1;
    switch (afcNumber(request.fixed, 8)) {
    case 5:
        operation = LOCK_SH | LOCK_NB;
        break;
    case 6:
        operation = LOCK_EX | LOCK_NB;
        break;
    case 12:
        operation = LOCK_UN | LOCK_NB;
        break;
    default:
        break;
    }
    if (fd < 0 || operation < 0) {
        return afcStatus(kAfcInvalidArgument);
    }
    return statusOfCall(flock(fd, operation));
}

} // namespace sim
