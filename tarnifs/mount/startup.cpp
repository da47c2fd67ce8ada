#include "tarnifs/mount/startup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/media/databases.h"
#include "tarnifs/mount/device_connection.h"
#include "tarnifs/mount/host.h"
#include "tarnifs/mount/private_folder.h"
#include "tarnifs/notify/dialogs.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_init";
constexpr int LAST_RETRY = 9;
constexpr unsigned BEFORE_CONNECTING_US = 100000;
constexpr unsigned PAUSE_STEP_US = 100000;
constexpr size_t LOCATION_ID_SIZE = 16; // ten digits and more

// In steps, so that a start that was given up ends at once.
void pauseForReal(unsigned microseconds)
{
    while (microseconds > 0 && !tarniGivenUp()) {
        const unsigned step = std::min(microseconds, PAUSE_STEP_US);
        usleep(step);
        microseconds -= step;
    }
}

bool neverGivenUp()
{
    return false;
}

// The id that main passed; 0, which no device has, without one.
uint32_t readLocationId()
{
    void *given = nullptr;
    if (!hostFuseContext(&given) || given == nullptr) {
        return 0;
    }
    return static_cast<uint32_t>(*static_cast<int32_t *>(given));
}

bool makeBuffers()
{
    gEncodedPath = static_cast<char *>(calloc(1, ENCODED_PATH_SIZE));
    memset(gBundlePath, 0, sizeof(gBundlePath));
    if (hostBundlePath(gBundlePath) != 0) {
        QNLog(3, "%s getBundlePath failed", SELF);
    }
    return gEncodedPath != nullptr;
}

bool setLocationId(_CONTEXT *context, uint32_t locationId)
{
    context->pLocationId = static_cast<char *>(calloc(1, LOCATION_ID_SIZE));
    if (context->pLocationId == nullptr) {
        QNLog(3, "%s pContext alloc failed", SELF);
        return false;
    }
    snprintf(context->pLocationId, LOCATION_ID_SIZE, "%u", locationId);
    return true;
}

// *made: the folder was not there before. False: what is there is not ours to
// use.
bool makePrivateFolder(const _CONTEXT *context, bool *made)
{
    const std::string folder = PrivateFolder(context);
    struct stat st {
    };
    const bool there = lstat(folder.c_str(), &st) == 0;
    if (!hostMakePrivateFolder(folder.c_str())) {
        QNLog(3, "%s private folder refused. path(%s)", SELF, folder.c_str());
        return false;
    }
    *made = !there;
    if (there) {
        RemoveDatabaseCopies(context);
    }
    return true;
}

bool initLibrary()
{
    char resources[sizeof(gBundlePath) + 32];
    snprintf(resources, sizeof(resources), "%s/Contents/Resources",
             gBundlePath);
    const int ret = libiusb_init_ex(resources, 1);
    if (ret != 0) {
        QNLog(3, "%s libiusb_init failed. code : %d", SELF, ret);
    }
    return ret == 0;
}

bool initContext(_CONTEXT *context)
{
    libiusb_context *libctx = nullptr;
    const int ret = libiusb_context_init(&libctx);
    if (ret != 0) {
        QNLog(3, "%s libiusb_context_init failed. code : %d", SELF, ret);
        return false;
    }
    if (libctx == nullptr) {
        QNLog(
            3,
            "%s libiusb_context_init succeed, but libiusb_context is null. code : %d",
            SELF, ret);
        return false;
    }
    context->context = libctx;
    return true;
}

// Looks for the device up to eleven times, each time with a fresh library
// context: one that has only just been plugged in shows up late.
bool connect(_CONTEXT *context, uint32_t locationId)
{
    for (int counter = 0;; ++counter) {
        if (!initContext(context)) {
            return false;
        }
        tarniPause(BEFORE_CONNECTING_US);
        const int ret = device_init(context, context->context, locationId);
        if (ret == 0) {
            return true;
        }
        if (ret != LIBIUSB_ERROR_NO_DEVICE || counter > LAST_RETRY ||
            tarniGivenUp()) {
            // In words: a person who finds a mount that answers nothing has
            // only the log.
            QNLog(3, "%s no connection to the device at %u : %s. code : %d",
                  SELF, locationId, libiusb_strerror(ret), ret);
            return false;
        }
        libiusb_context_exit(context->context);
        context->context = nullptr;
    }
}

// Everything that can fail. What it made is in the context, and *madeFolder.
bool start(_CONTEXT *context, uint32_t locationId, bool *madeFolder)
{
    return setLocationId(context, locationId) &&
           makePrivateFolder(context, madeFolder) && initLibrary() &&
           connect(context, locationId);
}

void freeBuffers()
{
    free(gEncodedPath);
    gEncodedPath = nullptr;
}

void *initLocked(uint32_t locationId)
{
    const bool haveBuffers = makeBuffers();
    auto *context = haveBuffers ? new (std::nothrow) _CONTEXT : nullptr;
    if (context == nullptr) {
        QNLog(3, "%s pContext alloc failed", SELF);
        freeBuffers();
        return nullptr;
    }
    bool madeFolder = false;
    if (!start(context, locationId, &madeFolder)) {
        if (madeFolder) {
            hostRemoveFolder(PrivateFolder(context).c_str());
        } else {
            hostLeavePrivateFolder();
        }
        AbandonContext(context);
        freeBuffers();
        return nullptr;
    }
    StartDialogThread(context);
    ClearCatalogue(context->afc_handle);
    StartTrayThread(context);
    return context;
}

} // namespace

void (*tarniPause)(unsigned microseconds) = pauseForReal;
bool (*tarniGivenUp)() = neverGivenUp;

void *tarnifs_init(struct fuse_conn_info *conn)
{
    hostInitConnection(conn);
    const uint32_t locationId = readLocationId();
    QNLogInit();
    const TarniLock lock;
    void *context = initLocked(locationId);
    sendPipeMsg(BUSY_OFF);
    return context;
}
