// Listings. The handler delivers a whole folder at once; the kernel wants it in
// pieces with positions to go on from. So one run of the handler becomes a list
// of names, which is played back piece by piece, each name with the attributes
// it has at that moment: `ls -l` then needs no lookup per entry, and a file that
// changed since keeps its present size.
#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/attributes.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/operations.h"
#include "tarnifs/names/device_path.h"

namespace
{

struct OpenFolder {
    std::string path; // in the catalogue's spelling, at the last reading
    std::vector<std::string> names;
};

OpenFolder *OpenFolderOf(const fuse_file_info *fi)
{
    return reinterpret_cast<OpenFolder *>(fi->fh);
}

// The kernel gives a whole folder up for one name that it does not like.
bool CanBeShown(std::string_view name)
{
    constexpr size_t LONGEST = 1024;
    return !name.empty() && name.size() <= LONGEST &&
           name.find('/') == std::string_view::npos;
}

int KeepName(void *buffer, const char *name, const struct stat * /*st*/,
             off_t /*offset*/)
{
    if (!IsFuseHidden(name) && CanBeShown(name)) {
        static_cast<OpenFolder *>(buffer)->names.emplace_back(name);
    }
    return 0;
}

// The folder's names as they are now. Without a mount context the handler says
// so itself.
int ReadNames(const char *path, OpenFolder *folder)
{
    folder->names.clear();
    folder->path = path;
    if (MountContext() != nullptr) {
        const int ret = ResolvePath(path, &folder->path);
        if (ret != 0) {
            return ret;
        }
    }
    return RunListing(folder->path, folder, KeepName);
}

// Hands one name over. 1: the piece is full. A name that is gone by now is left
// out.
int Play(const OpenFolder &folder, const std::string &name, void *buffer,
         fuse_fill_dir_t filler, off_t next)
{
    struct stat st {
    };
    if (name == "." || name == "..") {
        st.st_mode = S_IFDIR;
        return filler(buffer, name.c_str(), &st, next,
                      static_cast<fuse_fill_dir_flags>(0));
    }
    const std::string path = ChildPath(folder.path, name);
    if (tarni_opers.getattr(path.c_str(), &st) != 0) {
        return 0;
    }
    CompleteStat(&st);
    return filler(buffer, name.c_str(), &st, next, FUSE_FILL_DIR_PLUS);
}

} // namespace

// Nothing is listed yet: an error here would reach programs as one of opening,
// and the kernel would take ENOSYS for "opening is not needed".
int OpendirAdapter(const char * /*path*/, fuse_file_info *fi)
{
    fi->fh =
        reinterpret_cast<uint64_t>(std::make_unique<OpenFolder>().release());
    return 0;
}

int ReaddirAdapter(const char *path, void *buffer, fuse_fill_dir_t filler,
                   off_t offset, fuse_file_info *fi,
                   fuse_readdir_flags /*flags*/)
{
    const Gate gate;
    OpenFolder *folder = OpenFolderOf(fi);
    if (offset == 0) {
        const int ret = ReadNames(path, folder);
        if (ret != 0) {
            return ret;
        }
    }
    for (auto i = static_cast<size_t>(offset); i < folder->names.size(); ++i) {
        if (Play(*folder, folder->names[i], buffer, filler,
                 static_cast<off_t>(i + 1)) != 0) {
            break;
        }
    }
    return 0;
}

int ReleasedirAdapter(const char * /*path*/, fuse_file_info *fi)
{
    const std::unique_ptr<OpenFolder> folder(OpenFolderOf(fi));
    return 0;
}
