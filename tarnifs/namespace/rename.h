// Rename: a true rename within the storage area and within one app, a move or a
// copy across areas, and the refusal of everything else.
#pragma once

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"

// What a rename from one place to another means.
enum class RenameAction {
    DeviceRename,  // within the storage area
    MoveToStorage, // a copy, or a move out of an app
    MoveToApps,    // likewise, into an app or within one
    CopyApps,      // the whole apps area into a storage folder
    ReadOnly,      // refused: the target's place can't be changed
    ReadOnlyApps,  // the same, for the level of the app folders
    Refused,       // refused: the source's name can't be changed
    RefusedApps,   // the same, for an app folder as source
};

// The decision for two volume paths; the first rule that fits wins.
RenameAction DecideRename(const char *from, const char *to);

// Holds tarni_mutex for its whole run. 0, or -ECANCELED after a dialog.
int tarnifs_rename(const char *from, const char *to);

// The moves that a rename across places is: a file, or a folder entry by entry.
// 0 or a device code; the caller holds the lock. An item of the media views
// stays; any other source goes once its copy is confirmed and closed. What a
// failure leaves is in the catalogue as it is on the device. A folder stays when
// something in it could not go, as names beginning with "." (moves into apps).
int movetostorage(_CONTEXT *context, const char *from, const char *to);
int movetoapps(_CONTEXT *context, const char *from, const char *to);

// Makes room for a rename's target: a record that it replaces is deleted, with
// everything below it, and a fresh one is registered and named. A target that is
// the source itself, spelled differently, takes the new spelling and is given
// back.
_KTL_OBJECT *MakeTarget(const char *to, const _KTL_OBJECT *source);

// After the device renamed: the target's record, at the end of its folder's
// list, takes over what the source's held; the source's record, and what was
// listed below it, is deleted. Gives the target, whose own children are not
// listed yet.
_KTL_OBJECT *NoteRenamed(const char *from, const char *to);
