#include "tarnifs/mount/context.h"

#include <cerrno>

#include "tarnifs/mount/host.h"
#include "util/log.h"

pthread_mutex_t tarni_mutex = PTHREAD_MUTEX_INITIALIZER;
char *gEncodedPath;
char gBundlePath[512];

int getContext(_CONTEXT **out)
{
    *out = nullptr;
    void *privateData = nullptr;
    if (!hostFuseContext(&privateData)) {
        QNLog(3, "%s FUSE_CONTEXT is NULL!!", "getContext");
        return -ENOSYS;
    }
    if (privateData == nullptr) {
        QNLog(3, "%s pContext is NULL!!", "getContext");
        return -ENOSYS;
    }
    *out = static_cast<_CONTEXT *>(privateData);
    return 0;
}
