// Files that are removed, or replaced by a rename, while they are open: libfuse
// renames them to ".fuse_hidden..." first and removes that name when the last
// program has closed it. When the rename that was to replace the file fails
// afterwards, the file must get its name back, and libfuse, which goes on using
// the hidden name, must not notice. All functions are called with the gate held.
#pragma once

#include <optional>
#include <string>

// A file put out of the way: its old and its hidden path, both as libfuse has
// them and in the catalogue's spelling.
struct HiddenFile {
    std::string asked;
    std::string asked_hidden;
    std::string original;
    std::string hidden;
};

// One that was to be replaced, and by what.
struct ReplacedFile {
    HiddenFile file;
    std::string source; // in the catalogue's spelling
};

// A rename failed, and nobody could tell whether the device has carried it out:
// by the hidden name, until it is known.
void NoteUnsettled(const ReplacedFile &file);
std::optional<ReplacedFile> UnsettledOf(const std::string &hidden);
void ForgetUnsettled(const std::string &hidden);

// Before libfuse removes a hidden name: finds out what became of such a rename,
// and brings the file back or lets it go. 0, or -EIO when that is still not
// known and the file must stay.
int SettleBeforeUnlink(const char *hidden);

// The calling thread renamed a file to a hidden name.
void NoteHidden(const HiddenFile &file);

// A lookup of `path` came: if this name was hidden a moment ago, it was removed,
// not replaced (a replacement lets nobody look in between).
void NoteLookup(const std::string &path);

// The file that the calling thread put out of the way for a rename to `path`
// just now; null when there is none. Asking forgets it.
std::optional<HiddenFile> TakeHidden(const std::string &path);

// From now on the hidden name stands for the original one, until ForgetRestored.
void NoteRestored(const HiddenFile &file);

// What `path` stands for: itself, or the name that a hidden file got back.
std::string RestoredName(const std::string &path);

// libfuse removes a hidden name: true when it stands for a file that got its
// name back, and is not to be touched.
bool ForgetRestored(const std::string &hidden);
