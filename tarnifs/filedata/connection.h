// Which connection a file is reached through, and house arrest on a folder.
#pragma once

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// How the connection on an app folder came to be, or where it failed.
enum HOUSE_STEP { HOUSE_INIT, HOUSE_OPENAPP };
struct HOUSE_RESULT {
    int code; // 0, or the device's
    HOUSE_STEP step;
};

// Makes sure that a folder's record holds a house-arrest connection to an app;
// one that is there is used as it is. Nothing is logged. After a failure of the
// second step the record holds a connection that stands for no app: end it, or
// leave it to the next call, which tries that step again.
HOUSE_RESULT OpenHouseArrest(_CONTEXT *context, _KTL_OBJECT *folder,
                             const char *appId);

// The log line of a failed OpenHouseArrest, in the name of the function `self`;
// the second form names the app.
void LogHouseFailure(const char *self, const HOUSE_RESULT &result);
void LogHouseFailure(const char *self, const HOUSE_RESULT &result,
                     const char *appId);

// Shows what a failed OpenHouseArrest means to the user; returns -ECANCELED.
int ReportHouseFailure(const HOUSE_RESULT &result, const char *path);

// The connection that an open file's device handle belongs to: its folder's for
// an app's file, where there is one, else the main one.
libiusb_afc *ConnectionOf(const _CONTEXT *context, const _KTL_OBJECT *object,
                          const char *path);

inline libiusb_afc *HouseArrestOf(const _KTL_OBJECT *folder)
{
    return reinterpret_cast<libiusb_afc *>(folder->hhandle);
}

inline void SetOpenObject(tarni_file_info *fi, const _KTL_OBJECT *object)
{
    fi->fh = reinterpret_cast<uint64_t>(object);
}

// Opening and reading take a transfer that broke off for a lost connection too.
inline bool IsTransferLost(int code)
{
    return code == LIBIUSB_ERROR_LOST_CONNECTION || code == LIBIUSB_ERROR_MUX;
}
