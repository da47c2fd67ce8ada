#include "tarnifs/mount/operations.h"

#include "tarnifs/catalogue/attributes.h"
#include "tarnifs/catalogue/xattrs.h"
#include "tarnifs/filedata/create.h"
#include "tarnifs/filedata/filedata.h"
#include "tarnifs/listing/readdir.h"
#include "tarnifs/mount/startup.h"
#include "tarnifs/mount/statistics.h"
#include "tarnifs/namespace/make_remove.h"
#include "tarnifs/namespace/rename.h"

// Deliberately absent, so that the FUSE library answers or refuses them itself:
// readlink, mknod, symlink, link, flush, fsync, listxattr, opendir, releasedir,
// fsyncdir, lock and bmap. chmod, chown, truncate and utimens arrive as
// setattr_x.
const tarni_operations tarni_opers = {
    .init = tarnifs_init,
    .destroy = tarnifs_destroy,
    .statfs = tarnifs_statfs,
    .access = tarnifs_access,
    .getattr = tarnifs_getattr,
    .fgetattr = tarnifs_fgetattr,
    .setattr_x = tarnifs_setattr_x,
    .fsetattr_x = tarnifs_fsetattr_x,
    .getxattr = tarnifs_getxattr,
    .setxattr = tarnifs_setxattr,
    .removexattr = tarnifs_removexattr,
    .readdir = tarnifs_readdir,
    .open = tarnifs_open,
    .read = tarnifs_read,
    .write = tarnifs_write,
    .release = tarnifs_release,
    .create = tarnifs_create,
    .mkdir = tarnifs_mkdir,
    .rmdir = tarnifs_rmdir,
    .unlink = tarnifs_unlink,
    .rename = tarnifs_rename,
};
