// The private folder. It stands under a folder that everybody may write into,
// so a name that is taken already is looked at through one descriptor and never
// followed.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
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

// Open and locked, together with others, while this process works in a private
// folder. A volume that takes long to end, because it waits for its device, may
// have a successor under the same id by then: it must leave the folder to it.
int used_folder = -1;

int OpenFolder(const char *path)
{
    return open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// False: its former user removed it while we waited.
bool BeginUse(const char *path)
{
    hostLeavePrivateFolder();
    used_folder = OpenFolder(path);
    struct stat st {
    };
    if (used_folder >= 0) {
        flock(used_folder, LOCK_SH);
    }
    return used_folder >= 0 && fstat(used_folder, &st) == 0 && st.st_nlink > 0;
}

bool Refuse(const char *path, const std::string &why)
{
    QNLog(3, "%s private folder refused. path(%s) : %s",
          "hostMakePrivateFolder", path, why.c_str());
    return false;
}

std::string Reason(int error)
{
    return std::generic_category().message(error);
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
    const Descriptor folder(OpenFolder(path));
    if (folder.fd < 0) {
        return Refuse(path, errno == ENOTDIR || errno == ELOOP
                                ? "it is a link or no folder"
                                : Reason(errno));
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
        return Refuse(path, Reason(errno));
    }
    if ((st.st_mode & 022) != 0) {
        EmptyFolder(path);
    }
    return true;
}

bool MakeOrTakeOver(const char *path)
{
    if (mkdir(path, 0700) == 0) {
        return true;
    }
    if (errno != EEXIST) {
        return Refuse(path, Reason(errno));
    }
    return TakeOver(path);
}

} // namespace

bool hostMakePrivateFolder(const char *path)
{
    constexpr int most_tries = 10;
    for (int i = 0; i < most_tries; ++i) {
        if (!MakeOrTakeOver(path)) {
            return false;
        }
        if (BeginUse(path)) {
            return true;
        }
    }
    return Refuse(path, "it is removed again and again");
}

void hostLeavePrivateFolder()
{
    if (used_folder >= 0) {
        close(used_folder);
        used_folder = -1;
    }
}

void hostRemoveFolder(const char *path)
{
    hostLeavePrivateFolder();
    struct stat st {
    };
    if (lstat(path, &st) != 0) {
        return;
    }
    if (!S_ISDIR(st.st_mode) || st.st_uid != geteuid()) {
        QNLog(3, "%s not our folder. path(%s)", "hostRemoveFolder", path);
        return;
    }
    const Descriptor folder(OpenFolder(path));
    if (flock(folder.fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        QNLog(3, "%s another volume uses it. path(%s)", "hostRemoveFolder",
              path);
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
