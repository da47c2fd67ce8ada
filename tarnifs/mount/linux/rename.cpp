// Renames, with what Linux programs and libfuse expect of them.
#include <linux/fs.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/dot_names.h"
#include "tarnifs/mount/linux/hidden.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/linux/open_files.h"
#include "tarnifs/mount/linux/unlisted.h"
#include "tarnifs/mount/operations.h"
#include "tarnifs/names/device_path.h"

namespace
{

// The handler's rename, followed by open files and dot names.
int RenameWithAll(const std::string &from, const std::string &to)
{
    const std::vector<OpenState> opens = OpensBelow(from);
    const std::vector<std::string> dot_names = ShownDotNames(from);
    const int ret = HostResult(tarni_opers.rename(from.c_str(), to.c_str()));
    // A move that failed half-way has moved some files all the same.
    const std::vector<OpenState> moved = LetGo(opens, from);
    if (ret == 0) {
        ForgetUnlisted(from);
        ForgetUnlisted(to);
        ShowDotNames(to, dot_names);
    }
    OpenAnew(moved, from, to);
    return ret;
}

// An open file is removed. In a read-only place that is refused as any removal
// is.
int Hide(const char *asked, const char *asked_hidden)
{
    std::string from;
    int ret = ResolvePath(asked, &from);
    if (ret != 0) {
        return ret;
    }
    if (!IsWritablePlace(from)) {
        return HostResult(tarni_opers.unlink(from.c_str()));
    }
    ret = EnsureListed(ParentFolderText(from)); // as for any name that is made
    if (ret != 0) {
        return ret;
    }
    const std::string hidden =
        ChildPath(ParentFolderText(from), LeafOf(asked_hidden));
    ret = RenameWithAll(from, hidden);
    if (ret == 0) {
        NoteHidden({asked, asked_hidden, from, hidden});
    }
    return ret;
}

// A folder replaces an empty folder only.
int CheckTargetFolder(const std::string &to)
{
    return IsWritablePlace(to) && PathIsFolder(to) ? CheckEmpty(to) : 0;
}

// Whether a rename's target is there: one that appeared on the device since its
// folder was listed must not be replaced unasked.
int FindTarget(const char *to, const std::string &target, bool *exists)
{
    std::string existing;
    *exists = ResolvePath(to, &existing) == 0;
    if (*exists || !IsWritablePlace(target)) {
        return 0;
    }
    const int ret = AskAboutAppeared(MountContext(), target);
    *exists = ret == 0;
    return ret == -ENOENT ? 0 : ret;
}

int Rename(const char *from, const char *to, bool replace)
{
    std::string source;
    std::string target;
    int ret = ResolvePath(from, &source);
    if (ret == 0) {
        ret = ResolveTarget(to, &target);
    }
    if (ret != 0 || source == target) {
        return ret;
    }
    bool exists = false;
    ret = FindTarget(to, target, &exists);
    if (ret == 0 && exists && !replace) {
        ret = -EEXIST;
    }
    if (ret == 0) {
        ret = CheckTargetFolder(target);
    }
    // What is moved out of the media views is what their listing made.
    if (ret == 0 && IsWithin(source, MEDIA_AREA) && PathIsFolder(source)) {
        ret = EnsureListed(source);
    }
    return ret != 0 ? ret : RenameWithAll(source, target);
}

// What became of a rename that failed after its target was put out of the way:
// the target gets its name back, unless the device has carried the rename out
// and only its answer was lost. 0 when that is settled. -EIO without an answer
// about it: then the hidden file, which may be the only one there is, stays.
int SettleReplaced(const ReplacedFile &replaced)
{
    const HiddenFile &file = replaced.file;
    // What is in the media views, or was not even found, was not moved.
    const bool stays =
        replaced.source.empty() || IsWithin(replaced.source, MEDIA_AREA);
    const int source = stays ? 0 : AskIfThere(MountContext(), replaced.source);
    const int target = AskIfThere(MountContext(), file.original);
    if (source == -EIO || target == -EIO) {
        return -EIO;
    }
    if (source == -ENOENT && target == 0) {
        return 0; // it was replaced
    }
    if (RenameWithAll(file.hidden, file.original) != 0) {
        return -EIO;
    }
    NoteRestored(file);
    return 0;
}

} // namespace

int RenameAdapter(const char *from, const char *to, unsigned flags)
{
    const Gate gate;
    if ((flags & ~static_cast<unsigned>(RENAME_NOREPLACE)) != 0) {
        return -EINVAL;
    }
    if (tarni_opers.rename == nullptr || tarni_opers.unlink == nullptr) {
        return -EROFS;
    }
    if (IsFuseHidden(to)) {
        return WithoutEnosys(Hide(from, to));
    }
    // When the target is open, libfuse has put it out of the way before: a
    // rename that fails must bring it back.
    const std::optional<HiddenFile> hidden = TakeHidden(to);
    std::string source;
    if (hidden) {
        ResolvePath(from, &source);
    }
    const int ret = Rename(from, to, (flags & RENAME_NOREPLACE) == 0);
    if (ret != 0 && hidden && SettleReplaced({*hidden, source}) != 0) {
        NoteUnsettled({*hidden, source});
    }
    return WithoutEnosys(ret);
}

int SettleBeforeUnlink(const char *hidden)
{
    const std::optional<ReplacedFile> replaced = UnsettledOf(hidden);
    if (!replaced) {
        return 0;
    }
    const int ret = SettleReplaced(*replaced);
    if (ret == 0) {
        ForgetUnsettled(hidden);
    }
    return ret;
}
