// The FUSE library's table.
#include "tarnifs/mount/macos/adapters.h"
#include "tarnifs/mount/operations.h"

namespace
{

void *InitAdapter(fuse_conn_info *conn)
{
    return tarni_opers.init(conn);
}

void DestroyAdapter(void *private_data)
{
    tarni_opers.destroy(private_data);
}

// Left out, so that the library answers or refuses them itself: readlink,
// getdir, mknod, symlink, link, chmod, chown, truncate, utime, utimens, flush,
// fsync, listxattr, opendir, releasedir, fsyncdir, ftruncate, lock, bmap, and
// what only macOS knows but for the two below (setvolname, exchange, getxtimes,
// chflags and so on). Changes of attributes all arrive as setattr_x.
fuse_operations MakeTable()
{
    fuse_operations table{};
    table.init = InitAdapter;
    table.destroy = DestroyAdapter;
    table.statfs = StatfsAdapter;
    table.access = AccessAdapter;
    table.getattr = GetattrAdapter;
    table.fgetattr = FgetattrAdapter;
    table.setattr_x = SetattrAdapter;
    table.fsetattr_x = FsetattrAdapter;
    table.getxattr = GetxattrAdapter;
    table.setxattr = SetxattrAdapter;
    table.removexattr = RemovexattrAdapter;
    table.readdir = ReaddirAdapter;
    table.open = OpenAdapter;
    table.read = ReadAdapter;
    table.write = WriteAdapter;
    table.release = ReleaseAdapter;
    table.create = CreateAdapter;
    table.mkdir = MkdirAdapter;
    table.rmdir = RmdirAdapter;
    table.unlink = UnlinkAdapter;
    table.rename = RenameAdapter;
    return table;
}

} // namespace

const fuse_operations &HostTable()
{
    static const fuse_operations table = MakeTable();
    return table;
}
