// libfuse's table, and its connection to the kernel.
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/background.h"
#include "tarnifs/mount/operations.h"
#include "tarnifs/mount/startup.h"

namespace
{

constexpr unsigned LARGEST_REQUEST = 1024 * 1024; // what the kernel can do

// Renames that copy leave their source in place, and moves may fail half-way:
// what exists changes behind the kernel's back, so it remembers names for a
// moment only and misses not at all. That a warm listing costs nothing comes
// from the catalogue.
constexpr double KERNEL_REMEMBERS = 1.0; // seconds

fuse_session *starting = nullptr;

bool IsGivenUp()
{
    return fuse_session_exited(starting) != 0 || StarterGone();
}

void *InitAdapter(fuse_conn_info *conn, fuse_config *config)
{
    config->entry_timeout = KERNEL_REMEMBERS;
    config->attr_timeout = KERNEL_REMEMBERS;
    config->negative_timeout = 0;
    config->intr = 0; // its signal is the dialog thread's
    config->use_ino = 0;
    config->hard_remove = 0; // open files would lose their paths
    config->kernel_cache = 0;
    config->auto_cache = 0;
    config->direct_io = 0;
    config->nullpath_ok = 0;
    starting = fuse_get_session(fuse_get_context()->fuse);
    tarniGivenUp = IsGivenUp;
    void *context = tarni_opers.init(conn);
    // A volume that a signal ends has nothing to tell: its end tells it.
    if (fuse_session_exited(starting) == 0 &&
        !TellStarted(context != nullptr)) {
        fuse_exit(fuse_get_context()->fuse);
    }
    return context;
}

void DestroyAdapter(void *private_data)
{
    tarni_opers.destroy(private_data);
}

// Left out: readlink, mknod, symlink, link, flush, fsync, listxattr, fsyncdir,
// lock, bmap, ioctl, poll, write_buf, read_buf, flock, fallocate,
// copy_file_range, lseek. libfuse or the kernel answers them: syncing needs
// nothing, because a write returns only when the device has it; locks are the
// kernel's own; devices have no links.
fuse_operations MakeTable()
{
    fuse_operations table{};
    table.init = InitAdapter;
    table.destroy = DestroyAdapter;
    table.statfs = StatfsAdapter;
    table.access = AccessAdapter;
    table.getattr = GetattrAdapter;
    table.chmod = ChmodAdapter;
    table.chown = ChownAdapter;
    table.utimens = UtimensAdapter;
    table.truncate = TruncateAdapter;
    table.getxattr = GetxattrAdapter;
    table.setxattr = SetxattrAdapter;
    table.removexattr = RemovexattrAdapter;
    table.opendir = OpendirAdapter;
    table.readdir = ReaddirAdapter;
    table.releasedir = ReleasedirAdapter;
    table.open = OpenAdapter;
    table.create = CreateAdapter;
    table.read = ReadAdapter;
    table.write = WriteAdapter;
    table.release = ReleaseAdapter;
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

void hostInitConnection(fuse_conn_info *conn)
{
    // Reads must come in the order in which the program made them, or a file
    // read from end to end is not recognised as such.
    conn->want &=
        ~static_cast<unsigned>(FUSE_CAP_ASYNC_READ | FUSE_CAP_WRITEBACK_CACHE |
                               FUSE_CAP_READDIRPLUS_AUTO);
    conn->want |=
        conn->capable & (FUSE_CAP_ATOMIC_O_TRUNC | FUSE_CAP_READDIRPLUS);
    conn->max_write = LARGEST_REQUEST;
    conn->max_readahead = LARGEST_REQUEST;
}

bool hostFuseContext(void **private_data)
{
    const fuse_context *context = fuse_get_context();
    if (context == nullptr) {
        return false;
    }
    *private_data = context->private_data;
    return true;
}
