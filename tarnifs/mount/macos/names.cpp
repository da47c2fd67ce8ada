// Listing folders, looking for names, making and removing them.
#include <cerrno>
#include <string>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/macos/adapters.h"
#include "tarnifs/mount/macos/spelling.h"
#include "tarnifs/mount/operations.h"

int AccessAdapter(const char *path, int mask)
{
    const Gate gate;
    // The handler's one failure is a path it does not know; it has no number.
    return tarni_opers.access(Spelled(path).c_str(), mask) == 0 ? 0 : -ENOENT;
}

// The filler is the library's own, which takes a whole folder at once.
int ReaddirAdapter(const char *path, void *buffer, fuse_fill_dir_t filler,
                   off_t offset, fuse_file_info * /*fi*/)
{
    const Gate gate;
    tarni_file_info info;
    return HostResult(tarni_opers.readdir(Spelled(path).c_str(), buffer, filler,
                                          offset, &info));
}

int MkdirAdapter(const char *path, mode_t mode)
{
    const Gate gate;
    return HostResult(tarni_opers.mkdir(Spelled(path).c_str(), mode));
}

int RmdirAdapter(const char *path)
{
    const Gate gate;
    return HostResult(tarni_opers.rmdir(Spelled(path).c_str()));
}

int UnlinkAdapter(const char *path)
{
    const Gate gate;
    return HostResult(tarni_opers.unlink(Spelled(path).c_str()));
}

int RenameAdapter(const char *from, const char *to)
{
    const Gate gate;
    const std::string source = Spelled(from);
    const std::string target = Spelled(to);
    // Two spellings of one name.
    if (source == target) {
        return 0;
    }
    return HostResult(tarni_opers.rename(source.c_str(), target.c_str()));
}
