#include "tarnifs/filedata/staging.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tarnifs/catalogue/key.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/private_folder.h"
#include "util/log.h"

namespace
{

// Never through a link, never into another program.
constexpr int ALWAYS = O_NOFOLLOW | O_CLOEXEC;

// Access mode of the program's open and nothing that would change the file.
int readFlags(int flags)
{
    return (flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND)) | ALWAYS;
}

std::string stagedFile(const _CONTEXT *context, const char *path)
{
    return PrivateFolder(context) + "/" + LastComponent(path);
}

// Opened without O_APPEND, with which a positioned write would go to the end.
// The mode is for the owner alone: the process's file-creation mask is 0.
int openForWriting(const std::string &local)
{
    struct stat st {
    };
    const int flags = lstat(local.c_str(), &st) == 0
                          ? O_WRONLY
                          : O_WRONLY | O_CREAT | O_TRUNC;
    return open(local.c_str(), flags | ALWAYS, S_IRUSR | S_IWUSR);
}

} // namespace

int ReadStaged(const _CONTEXT *context, const char *path, int flags, char *buf,
               size_t size, off_t offset)
{
    const std::string local = PrivateFolder(context) + path;
    struct stat st {
    };
    if (stat(local.c_str(), &st) != 0) {
        return -ENOENT;
    }
    const int fd = open(local.c_str(), readFlags(flags));
    if (fd < 0) {
        return 0;
    }
    const ssize_t count = pread(fd, buf, size, offset);
    close(fd);
    return static_cast<int>(count);
}

int WriteStaged(const _CONTEXT *context, const char *path, const char *buf,
                size_t size, off_t offset)
{
    const int fd = openForWriting(stagedFile(context, path));
    if (fd < 0) {
        QNLog(3, "%s open staging file failed. path(%s) errno : %d",
              "tarnifs_write", path, errno);
        return 0;
    }
    const ssize_t count = pwrite(fd, buf, size, offset);
    const int error = errno;
    close(fd);
    if (count < 0) {
        QNLog(3, "%s write staging file failed. path(%s) errno : %d",
              "tarnifs_write", path, error);
        return -error;
    }
    return static_cast<int>(count);
}

int TruncateStaged(const _CONTEXT *context, const char *path, off_t size)
{
    const int fd = openForWriting(stagedFile(context, path));
    if (fd < 0) {
        return -errno;
    }
    const int result = ftruncate(fd, size) == 0 ? 0 : -errno;
    close(fd);
    return result;
}

void DropStaged(const _CONTEXT *context, const char *path)
{
    unlink(stagedFile(context, path).c_str());
}

bool IsSafeSave(const _KTL_OBJECT *object, const char *path)
{
    if (object->type == KTL_STAGED) {
        return true;
    }
    const std::string text = path;
    const size_t mark = text.find(".sb-");
    return mark != std::string::npos &&
           text.find('/', mark) == std::string::npos && object->size == 0 &&
           FindObject(text.substr(0, mark).c_str()) != nullptr;
}
