// The mount context, the one lock, and the accessor: what every handler shares.
#pragma once

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <mutex>

#include <boost/thread/thread.hpp>

#include "device/libiusb.h"

struct sqlite3;

// What the dialog thread works on. `lock` guards title, message and button; the
// flags are set by operations and cleared by the thread.
struct _DIALOG_BLOCK {
    std::atomic<uint8_t> dialog_run{0};     // the thread keeps running while 1
    std::atomic<uint8_t> dialog_pending{0}; // a message waits to be shown
    std::atomic<uint8_t> finder_refresh{0}; // a file manager refresh is wanted
    const char *dialog_title = nullptr;
    char dialog_message[512] = {};
    const char *dialog_button = nullptr;
    sigset_t dialog_sigset{};
    std::atomic<int32_t> refresh_busy{0}; // a refresh is running
    std::mutex lock;
};

// One per mount. Made by tarnifs_init, freed by tarnifs_destroy, handed to every
// operation by FUSE. Guarded by tarni_mutex, except for the dialog block and
// tray_run, which the background threads share.
struct _CONTEXT {
    libiusb_context *context = nullptr;
    libiusb_device *device_handle = nullptr;
    libiusb_device_info device_info{}; // free_capacity follows what is written
                                       // and removed; the rest stays
    libiusb_afc *afc_handle = nullptr; // the media file system
    libiusb_instproxy *instproxy_handle = nullptr;
    char *pLocationId = nullptr; // decimal; names the private folder
    sqlite3 *media_db = nullptr;
    sqlite3 *photo_db = nullptr;
    sqlite3 *record_db = nullptr;
    _DIALOG_BLOCK dialog;
    pthread_t dialog_thread{};
    bool dialog_thread_exists = false; // pthread_t has no value for "none"
    boost::thread *tray_thread = nullptr;
    std::atomic<uint8_t> tray_run{0}; // the tray thread keeps running while 1
};

// The one lock of the file system, not recursive: every handler holds it for
// its whole run, device traffic included. The background threads never take it.
extern pthread_mutex_t tarni_mutex;

// Holds tarni_mutex for a scope.
class [[nodiscard]] TarniLock
{
  public:
    TarniLock() { pthread_mutex_lock(&tarni_mutex); }
    ~TarniLock() { pthread_mutex_unlock(&tarni_mutex); }
    TarniLock(const TarniLock &) = delete;
    TarniLock &operator=(const TarniLock &) = delete;
};

// Sets *out to the mount context and returns 0; without one logs, sets *out to
// null and returns -ENOSYS.
int getContext(_CONTEXT **out);

// The name buffer of the catalogue's lookups (2048 bytes) and the folder the
// program was installed into (512 bytes). Guarded by tarni_mutex.
extern char *gEncodedPath;
extern char gBundlePath[512];
constexpr size_t ENCODED_PATH_SIZE = 2048;
