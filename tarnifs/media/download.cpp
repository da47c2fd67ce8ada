#include "tarnifs/media/download.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "device/libiusb.h"
#include "tarnifs/mount/host.h"
#include "tarnifs/mount/private_folder.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "downloadfile";
constexpr uint32_t CHUNK = 65535;
// Reads in a row that bring nothing, before the end of the file.
constexpr int MOST_EMPTY_READS = 3;

// An open file of the device, being copied.
struct SOURCE {
    libiusb_afc *afc;
    libiusb_file file;
    uint64_t size;
};

// -1 after logging.
int openLocal(const _CONTEXT *context, const std::string &local)
{
    const std::string folder = PrivateFolder(context);
    struct stat st {
    };
    if (stat(folder.c_str(), &st) != 0) {
        hostMakePrivateFolder(folder.c_str());
    }
    const int fd = open(local.c_str(),
                        O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                        S_IRUSR | S_IWUSR);
    if (fd < 0) {
        QNLog(3, "%s topath open failed. errno : %d", SELF, errno);
    }
    return fd;
}

bool writeAll(int fd, const char *bytes, size_t length)
{
    while (length > 0) {
        const ssize_t count = write(fd, bytes, length);
        if (count <= 0 && errno != EINTR) {
            QNLog(3, "%s topath write failed. errno : %d", SELF, errno);
            return false;
        }
        bytes += std::max<ssize_t>(count, 0);
        length -= static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

// Reads one piece; the buffer holds zeros beyond what came. A device that brings
// nothing a few times brings nothing more.
bool readPiece(const SOURCE &source, std::vector<char> *buffer, uint32_t length,
               uint64_t *offset, int *emptyReads)
{
    std::fill(buffer->begin(), buffer->end(), '\0');
    uint32_t count = 0;
    int ret = libiusb_afc_file_read(source.afc, source.file, buffer->data(),
                                    length, *offset, &count);
    *emptyReads = count == 0 ? *emptyReads + 1 : 0;
    if (ret == 0 && *emptyReads > MOST_EMPTY_READS) {
        ret = LIBIUSB_ERROR_AFC_IO;
    }
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_read failed. code : %d", SELF, ret);
        return false;
    }
    *offset += count;
    return true;
}

// What a short read leaves open stands as zeros in the copy: the pages of a
// database keep their places.
bool copyContents(const SOURCE &source, int fd)
{
    std::vector<char> buffer(CHUNK);
    uint64_t offset = 0;
    int emptyReads = 0;
    while (offset < source.size) {
        const auto length = static_cast<uint32_t>(
            std::min<uint64_t>(source.size - offset, CHUNK));
        if (!readPiece(source, &buffer, length, &offset, &emptyReads) ||
            !writeAll(fd, buffer.data(), length)) {
            return false;
        }
    }
    return true;
}

void copyTo(const SOURCE &source, int fd, const std::string &local)
{
    bool whole = copyContents(source, fd);
    if (close(fd) != 0 && whole) {
        QNLog(3, "%s topath close failed. errno : %d", SELF, errno);
        whole = false;
    }
    if (!whole) {
        unlink(local.c_str());
    }
}

} // namespace

int downloadfile(_CONTEXT *context, const char *devicePath,
                 const char *localName)
{
    SOURCE source{context->afc_handle, 0, 0};
    libiusb_afc_file_info info{};
    int ret = libiusb_afc_file_get_info(source.afc, devicePath, &info);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_get_info failed. code : %d, path : %s",
              SELF, ret, devicePath);
        return ret;
    }
    source.size = info.size;
    ret = libiusb_afc_file_open(source.afc, devicePath, LIBIUSB_MODE_READ,
                                &source.file);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed. code : %d, path : %s", SELF,
              ret, devicePath);
        return ret;
    }
    const std::string local = PrivateFolder(context) + localName;
    const int fd = openLocal(context, local);
    if (fd >= 0) {
        copyTo(source, fd, local);
    }
    ret = libiusb_afc_file_close(source.afc, source.file);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_close failed. code : %d", SELF, ret);
    }
    return ret;
}
