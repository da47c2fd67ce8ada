// From the private folder to the device.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "tarnifs/catalogue/key.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/filedata/create.h"
#include "tarnifs/mount/private_folder.h"
#include "tarnifs/names/device_path.h"
#include "util/log.h"

namespace
{

// One less than 64 KiB, on purpose.
constexpr uint64_t PIECE = 65535;
constexpr mode_t OWNER_FILE = S_IRUSR | S_IWUSR;
constexpr int LOCAL_FAILURE = -1; // no local file, or it can't be read

struct UPLOAD {
    const char *self; // who logs
    libiusb_afc *afc;
    libiusb_file file = 0;
};

// Fills `piece` from the local file; false at its end or when it can't be read.
bool readPiece(int fd, std::vector<char> *piece, size_t length, uint64_t offset)
{
    std::fill(piece->begin(), piece->end(), '\0');
    return pread(fd, piece->data(), length, static_cast<off_t>(offset)) > 0;
}

// 0 when everything that the local file held at the beginning was written, else
// the device's code. Pieces are written whole whatever was read of them: that
// size counts.
int copyAll(const UPLOAD &upload, int fd, uint64_t size)
{
    std::vector<char> piece(PIECE);
    uint64_t offset = 0;
    while (offset < size) {
        const auto length =
            static_cast<uint32_t>(std::min(size - offset, PIECE));
        if (!readPiece(fd, &piece, length, offset)) {
            QNLog(3, "%s read staging file failed. offset : %llu", upload.self,
                  static_cast<unsigned long long>(offset));
            return LOCAL_FAILURE;
        }
        uint32_t written = 0;
        const int ret = libiusb_afc_file_write(
            upload.afc, upload.file, piece.data(), length, offset, &written);
        if (ret != 0 || written == 0) {
            QNLog(3, "%s libiusb_afc_file_write failed. code : %d", upload.self,
                  ret);
            return ret != 0 ? ret : LIBIUSB_ERROR_AFC_WRITE;
        }
        offset += written;
    }
    return 0;
}

int closeUpload(const UPLOAD &upload)
{
    const int ret = libiusb_afc_file_close(upload.afc, upload.file);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_close failed. code : %d", upload.self,
              ret);
        libiusb_afc_file_close(upload.afc, upload.file);
    }
    return ret;
}

// *copied: 0 when everything was written and the device file closed well, else
// what kept it from that.
int copyToDevice(const UPLOAD &given, const std::string &local,
                 const char *from, const char *to, int mode, int *copied)
{
    UPLOAD upload = given;
    struct stat st {
    };
    if (stat(local.c_str(), &st) != 0) {
        QNLog(3, "%s frompath(%s) file is not exist.", upload.self,
              local.c_str());
        return *copied = LOCAL_FAILURE;
    }
    int ret = libiusb_afc_file_open(upload.afc, to, mode, &upload.file);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed. code : %d, path : %s\n",
              upload.self, ret, from);
        return *copied = ret;
    }
    *copied = LOCAL_FAILURE;
    const int fd = open(local.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        QNLog(3, "%s topath open failed.", upload.self);
    } else {
        *copied = copyAll(upload, fd, static_cast<uint64_t>(st.st_size));
        close(fd);
    }
    ret = closeUpload(upload);
    if (*copied == 0) {
        *copied = ret;
    }
    return ret;
}

// The private folder's path, made when it is missing.
std::string readyFolder(const _CONTEXT *context)
{
    std::string folder = PrivateFolder(context);
    struct stat st {
    };
    if (stat(folder.c_str(), &st) != 0) {
        mkdir(folder.c_str(), S_IRWXU);
    }
    return folder;
}

} // namespace

int uploadfile(const _CONTEXT *context, const char *from, const char *to,
               libiusb_afc *afc, bool remove_after)
{
    const std::string local = readyFolder(context) + from;
    int copied = 0;
    const int ret = copyToDevice({"uploadfile", afc}, local, from, to,
                                 LIBIUSB_MODE_WRITE, &copied);
    if (copied == 0 && remove_after) {
        remove(local.c_str());
    }
    return ret;
}

int UploadStaged(const _CONTEXT *context, _KTL_OBJECT *object, const char *from,
                 const char *to, libiusb_afc *afc)
{
    const std::string name = std::string("/") + LastComponent(from);
    const std::string local = readyFolder(context) + name;
    int copied = 0;
    copyToDevice({"uploadfile", afc}, local, name.c_str(), to,
                 LIBIUSB_MODE_WRITE, &copied);
    if (copied == 0) {
        remove(local.c_str());
        object->type = KTL_ORDINARY;
    }
    return copied;
}

int UploadAllStaged(const _CONTEXT *context, _KTL_OBJECT *object,
                    const char *from, const char *to, libiusb_afc *afc)
{
    if (object->type == KTL_STAGED) {
        return UploadStaged(context, object, from, to, afc);
    }
    const _KTL_LIST *head = ChildList(object);
    for (_KTL_LIST *at = head->next; at != head; at = at->next) {
        _KTL_OBJECT *child = ObjectOfSibling(at);
        const char *name = child->file_name == nullptr ? "" : child->file_name;
        const int ret =
            UploadAllStaged(context, child, ChildPath(from, name).c_str(),
                            ChildPath(to, name).c_str(), afc);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

int uploadfileappend(const _CONTEXT *context, const char *from, const char *to)
{
    int copied = 0;
    return copyToDevice({"uploadfileappend", context->afc_handle},
                        PrivateFolder(context) + from, from, to,
                        LIBIUSB_MODE_APPEND, &copied);
}

int MakeTmpPath(const _CONTEXT *context, const char *path, unsigned mode)
{
    const std::string local = readyFolder(context) + path;
    if ((mode & S_IFDIR) != 0) {
        return mkdir(local.c_str(), S_IRWXU);
    }
    if ((mode & S_IFREG) == 0) {
        return 0;
    }
    const int fd =
        open(local.c_str(),
             O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, OWNER_FILE);
    if (fd < 0) {
        QNLog(3, "%s open staging file failed. path(%s) errno : %d",
              "MakeTmpPath", path, errno);
        return -1;
    }
    close(fd);
    return 0;
}
