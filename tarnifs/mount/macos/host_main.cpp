// The way into the FUSE library and what it keeps for the volume.
#include "tarnifs/mount/host.h"
#include "tarnifs/mount/macos/adapters.h"

int hostMain(int argc, char **argv, int32_t *locationId)
{
    return fuse_main_real(argc, argv, &HostTable(), sizeof(fuse_operations),
                          locationId);
}

// The kernel then compares names without regard to case, may rename the volume,
// and asks for creation times.
void hostInitConnection(fuse_conn_info *conn)
{
    conn->enable.case_insensitive = 1;
    conn->enable.setvolname = 1;
    conn->enable.xtimes = 1;
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
