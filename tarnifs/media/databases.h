// The device's own databases, of which the media views are made. They are
// copied into the private folder and only read there. What lies in the copies
// is data from outside: a damaged or made-up file may cost its views, never the
// process.
#pragma once

#include "tarnifs/mount/context.h"

// Fetches and opens the databases of the media library, the photos and the
// recordings into the context: once per mount, with the tray helper told when
// it takes long. The result is that of opening the recordings (0: there are
// none). A database that could not be fetched or opened stays unset; when that
// was for want of a connection, "/Media" counts as not completely listed. The
// caller holds tarni_mutex everywhere.
int DownloadDBandOpen(_CONTEXT *context);

// Tries again for those that could not be had for want of a connection. False
// when there still are any.
bool FetchLostDatabases(_CONTEXT *context);

// Opens a copy, for reading data from outside. 0, also when there is no copy,
// or SQLite's code; *out is only set when one was opened.
int opendb(_CONTEXT *context, const char *localName, sqlite3 **out);

// Closes those that are open.
void CloseDatabases(_CONTEXT *context);

// Removes copies that an earlier mount of this device left: a log that belongs
// to another file makes SQLite show old contents. No database may be open.
void RemoveDatabaseCopies(const _CONTEXT *context);
