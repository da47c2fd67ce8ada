// The private folder. It stands under a folder that everybody may write into,
// so a name that is taken already is looked at through one descriptor and never
// followed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "tarnifs/mount/host.h"
#include "util/log.h"

namespace
{

class Descriptor
{
  public:
    explicit Descriptor(int number) : fd(number) {}
    ~Descriptor()
    {
        if (fd >= 0) {
            close(fd);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    const int fd;
};

bool Refuse(const char *path, const char *why)
{
    QNLog(3, "%s private folder refused. path(%s) : %s",
          "hostMakePrivateFolder", path, why);
    return false;
}

// What others could write into may hold links that others put there.
void EmptyFolder(const char *path)
{
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(path, error)) {
        std::error_code ignored;
        std::filesystem::remove_all(entry.path(), ignored);
    }
}

// Takes over a folder that an earlier run of ours left behind.
bool TakeOver(const char *path)
{
    const Descriptor folder(
        open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder.fd < 0) {
        return Refuse(path, errno == ENOTDIR || errno == ELOOP
                                ? "it is a link or no folder"
                                : strerrordesc_np(errno));
    }
    struct stat st {
    };
    if (fstat(folder.fd, &st) != 0 || st.st_uid != geteuid()) {
        return Refuse(path, "it belongs to somebody else");
    }
    if ((st.st_mode & 07777) == 0700) {
        return true;
    }
    if (fchmod(folder.fd, 0700) != 0) {
        return Refuse(path, strerrordesc_np(errno));
    }
    if ((st.st_mode & 022) != 0) {
        EmptyFolder(path);
    }
    return true;
}

} // namespace

bool hostMakePrivateFolder(const char *path)
{
    if (mkdir(path, 0700) == 0) {
        return true;
    }
    if (errno != EEXIST) {
        return Refuse(path, strerrordesc_np(errno));
    }
    return TakeOver(path);
}

void hostRemoveFolder(const char *path)
{
    struct stat st {
    };
    if (lstat(path, &st) != 0) {
        return;
    }
    if (!S_ISDIR(st.st_mode) || st.st_uid != geteuid()) {
        QNLog(3, "%s not our folder. path(%s)", "hostRemoveFolder", path);
        return;
    }
    std::error_code error;
    std::filesystem::remove_all(path, error); // works on descriptors and
                                              // follows no link
    if (error) {
        QNLog(3, "%s remove failed. path(%s) : %s", "hostRemoveFolder", path,
              error.message().c_str());
    }
}
