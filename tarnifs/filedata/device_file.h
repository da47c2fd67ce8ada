// The device's side of an open file: where it lies and the handle on it.
//
// The caller holds tarni_mutex.
#pragma once

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"

// Opens the device file of a record that has none, an app's through the
// connection of its folder, which then counts one more open file. Logs as
// tarnifs_open. 0, or -ECANCELED after a dialog; a failed open ends the folder's
// connection, also one that other open files were using.
int OpenDeviceFile(_CONTEXT *context, _KTL_OBJECT *object, const char *path);

// For a file that was open when its folder's connection was ended by another
// one's failure: opens it again over a new connection, so that programs that
// hold it go on. Nothing is done, and no request made, for any other file. 0, or
// -ECANCELED after a dialog.
int ReviveDeviceFile(_CONTEXT *context, _KTL_OBJECT *object, const char *path);
