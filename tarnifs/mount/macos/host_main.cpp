// The way into the FUSE library and what it keeps for the volume.
#include <cstdio>

#include "tarnifs/mount/common/options.h"
#include "tarnifs/mount/exit_status.h"
#include "tarnifs/mount/host.h"
#include "tarnifs/mount/macos/adapters.h"

int hostMain(int argc, char **argv, int32_t *locationId)
{
    fuse_args args = FUSE_ARGS_INIT(argc, argv);
    OwnOptions own;
    int status = static_cast<int>(ExitStatus::Usage);
    if (TakeOwnOptions(&args, &own)) {
        if (*locationId == 0) {
            *locationId = static_cast<int32_t>(own.location);
        }
        status = fuse_main_real(args.argc, args.argv, &HostTable(),
                                sizeof(fuse_operations), locationId);
    } else {
        fprintf(stderr, "quorvelfs: %s\n", own.problem.c_str());
    }
    fuse_opt_free_args(&args);
    return status;
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
