// Dialogs. An operation fills in the dialog block of the context and wakes the
// dialog thread, which shows the text through the host and waits for the user.
// Texts raised while a dialog is on the screen replace each other: only the last
// is shown afterwards. The thread never takes tarni_mutex.
#pragma once

#include "tarnifs/mount/context.h"
#include "tarnifs/notify/messages.h"

// Composed text of the failure at hand. Guarded by tarni_mutex.
extern char ErrMsg[512];

// Asks for a dialog with printf-style text of at most 511 bytes and returns at
// once. Without a mount context nothing is shown and two lines are logged. Texts
// that hold a name are passed as an argument to "%s", never as the format.
void ShowMessageBox(int kind, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

// Shows what a failed device call means to the user (an error dialog, composed
// in ErrMsg) and returns -ECANCELED, the answer of an operation that told the
// user itself. `lost`: the code means that the connection is gone.
int ReportDeviceFailure(const DEVICE_FAILURE &failure, bool lost,
                        const char *name, int code);

// Shows an error with a text of its own; returns -ECANCELED.
int ReportError(const char *text, const char *name);

// Shows a refusal (a notification); returns -ECANCELED.
int ReportRefusal(const char *text, const char *path);

// Starts the dialog thread with SIGUSR1 blocked in the calling thread and in
// it. A failure is logged and leaves the mount without dialogs.
void StartDialogThread(_CONTEXT *context);

// Ends the dialog on the screen, if any, and the thread. Nothing happens when
// there is none.
void StopDialogThread(_CONTEXT *context);

// The thread's body; `dialogBlock` is the context's _DIALOG_BLOCK.
void *messageDialogThread(void *dialogBlock);
