#include <cstdlib>

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/media/databases.h"
#include "tarnifs/mount/host.h"
#include "tarnifs/mount/private_folder.h"
#include "tarnifs/mount/startup.h"
#include "tarnifs/notify/dialogs.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/check.h"

namespace
{

// A mount that was started has all four handles; one that lacks any is
// damaged, and closing the rest would hide it.
void closeConnection(_CONTEXT *context)
{
    QN_CHECK(context->instproxy_handle != nullptr,
             "pContext->instproxy_handle");
    libiusb_instproxy_exit(context->instproxy_handle);
    context->instproxy_handle = nullptr;
    QN_CHECK(context->afc_handle != nullptr, "pContext->afc_handle");
    libiusb_afc_exit(context->afc_handle);
    context->afc_handle = nullptr;
    QN_CHECK(context->device_handle != nullptr, "pContext->device_handle");
    libiusb_device_close(context->device_handle);
    context->device_handle = nullptr;
    QN_CHECK(context->context != nullptr, "pContext->context");
    libiusb_context_exit(context->context);
    context->context = nullptr;
}

void freeLocationId(_CONTEXT *context)
{
    QN_CHECK(context->pLocationId != nullptr, "pContext->pLocationId");
    free(context->pLocationId);
    context->pLocationId = nullptr;
}

void destroyLocked(_CONTEXT *context)
{
    free(gEncodedPath);
    gEncodedPath = nullptr;
    CloseDatabases(context);
    ClearCatalogue(context->afc_handle);
    hostRemoveFolder(PrivateFolder(context).c_str());
    context->device_info = {};
    closeConnection(context);
    freeLocationId(context);
    StopDialogThread(context);
    const bool trayEnded = StopTrayThread(context);
    DrainQueue();
    // A tray thread that hangs still looks at the context.
    if (trayEnded) {
        delete context;
    }
}

} // namespace

void AbandonContext(_CONTEXT *context)
{
    free(context->pLocationId);
    CloseDatabases(context);
    if (context->instproxy_handle != nullptr) {
        libiusb_instproxy_exit(context->instproxy_handle);
    }
    if (context->afc_handle != nullptr) {
        libiusb_afc_exit(context->afc_handle);
    }
    if (context->device_handle != nullptr) {
        libiusb_device_close(context->device_handle);
    }
    StopDialogThread(context);
    if (context->context != nullptr) {
        libiusb_context_exit(context->context);
    }
    delete context;
}

void tarnifs_destroy(void *private_data)
{
    auto *context = static_cast<_CONTEXT *>(private_data);
    if (context == nullptr) {
        return;
    }
    {
        const TarniLock lock;
        destroyLocked(context);
    }
    // The lock ends with the mount; tests start another one in the same process.
    pthread_mutex_destroy(&tarni_mutex);
    pthread_mutex_init(&tarni_mutex, nullptr);
}
