// What the host binding gives to the shared code, and the few types that differ
// between FUSE libraries. `mount/linux/` and `mount/macos/` each implement the
// functions, with what they have in common in `mount/common/`; nothing else asks
// which host it is on.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

struct fuse_conn_info;

// "No such attribute" in the host's numbering.
#ifdef ENOATTR
constexpr int TARNI_ENOATTR = ENOATTR;
#else
constexpr int TARNI_ENOATTR = ENODATA;
#endif

// What the handlers use of FUSE's open-file record. One exists per open; `fh`
// is the address of the path's catalogue record, 0 when this file system did
// not open it.
struct tarni_file_info {
    int flags = 0;           // open(2) flags of this open
    bool keep_cache = false; // set: this open does not count as a read-through
    uint64_t fh = 0;
};

// Bits of tarni_setattr::valid, as the macOS interface numbers them.
enum tarni_setattr_bits : uint32_t {
    TARNI_SETATTR_MODE = 1U << 0,
    TARNI_SETATTR_UID = 1U << 1,
    TARNI_SETATTR_GID = 1U << 2,
    TARNI_SETATTR_SIZE = 1U << 3,
    TARNI_SETATTR_ACCTIME = 1U << 4,
    TARNI_SETATTR_MODTIME = 1U << 5,
    TARNI_SETATTR_CRTIME = 1U << 28,
};

struct tarni_setattr {
    uint32_t valid = 0; // tarni_setattr_bits
    uint64_t size = 0;  // bytes
};

// Directory filler: name, null stat, offset 0. A non-zero result means that the
// host wants no more, and is ignored by the handlers.
using tarni_filler = int (*)(void *buffer, const char *name,
                             const struct stat *st, off_t offset);

// Hands the process to the FUSE library: parses the FUSE arguments, mounts, and
// runs until the volume is unmounted, with tarni_opers as the table and
// `locationId` as what hostFuseContext yields until tarnifs_init returned. The
// result is the process's exit status.
int hostMain(int argc, char **argv, int32_t *locationId);

// Switches on what the volume needs of the FUSE connection.
void hostInitConnection(struct fuse_conn_info *conn);

// The private data of the current FUSE context in *private_data. False when
// there is no FUSE context at all.
bool hostFuseContext(void **private_data);

// Copies the path of the folder that the program was installed into (at most
// 511 bytes) into `dst`. 0, or -1 after logging.
int hostBundlePath(char *dst);

// Records a creation time where the host's stat record has one.
void hostSetBirthTime(struct stat *st, time_t seconds);

// Makes the private folder for the owner alone. True when it is there, ours and
// a real folder afterwards; a foreign one is refused with a log line.
bool hostMakePrivateFolder(const char *path);

// Says that this process no longer uses the private folder, which stays.
void hostLeavePrivateFolder();

// Removes the private folder and everything in it, unless another volume uses
// it as well.
void hostRemoveFolder(const char *path);

// Shows a modal notice and returns when the user has closed it, or when
// hostEndDialog was called from another thread. Never goes through a shell on
// Linux.
void hostShowDialog(const char *title, const char *text, const char *button);

// Ends a dialog that is still on the screen; none will be shown afterwards.
void hostEndDialog();

// Asks the file manager to refresh its windows.
void hostRefreshFileManager();
