// What the moves across areas share: their beginning, the target's record, the
// entries of a folder, the end of a source. The caller holds tarni_mutex
// everywhere.
#pragma once

#include <string>
#include <vector>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/namespace/copy.h"

// One file or folder on its way.
struct MOVE {
    _CONTEXT *context;
    const char *self; // who logs
    const char *from; // volume paths
    const char *to;
    _KTL_OBJECT *source = nullptr;
    _KTL_OBJECT *folder = nullptr; // that the target goes into
};

// movetostorage or movetoapps, for a folder's entries.
using MOVE_ENTRY = int (*)(_CONTEXT *context, const char *from, const char *to);

// Finds the records; the target gets one that is in no list yet. 0, NO_SPACE for
// a file that the free capacity has no room for, OBJECT_NOT_FOUND when nobody
// knows the target's folder.
int BeginMove(MOVE &move);

// NO_SPACE when there is no room for that many bytes.
int CheckRoom(const MOVE &move, uint64_t size);

// OBJECT_IS_DIR or OBJECT_EXISTS for a target that is there and of the other
// kind.
int CheckTargetKind(const MOVE &move, bool isFolder);

// After the opening or making of the target was tried, with that result, which it
// gives back: without an answer the device may have the target, and empty.
int NoteTarget(const MOVE &move, int result);

// The device has the target now: its record replaces one that was there and goes
// to the end of its folder's list. A folder that was there keeps its entries.
_KTL_OBJECT *LinkFile(const MOVE &move);
_KTL_OBJECT *LinkFolder(const MOVE &move);

// Moves the entries of a folder one by one; the first failure is logged and ends
// it.
int MoveEntries(const MOVE &move, const std::vector<std::string> &names,
                MOVE_ENTRY moveEntry);

// The names of a folder's catalogued children.
std::vector<std::string> ChildNames(const _KTL_OBJECT *folder);

// After the source's removal was tried, with that result: its record goes when
// the device has it no more, or gave no answer.
void NoteRemoved(const MOVE &move, int result);

// A source whose contents wait in the private folder: brings them to the device
// first. Nothing happens for any other. 0, -1 without the local file, or the
// device's code.
int UploadSource(const MOVE &move, libiusb_afc *afc,
                 const std::string &devicePath);

// How the lines of the two moves differ for items of the media views.
struct MEDIA_LINES {
    const char *openSource; // a second blank, or none
    char afterFolder;       // what follows the path
};

// Copies an item or a folder of the media views, which stays.
int CopyMedia(const MOVE &move, libiusb_afc *targetAfc,
              const std::string &targetPath, const MEDIA_LINES &lines,
              MOVE_ENTRY moveEntry);

// The whole apps area into a folder of the storage area, app by app. 0 or the
// device's code.
int CopyApps(_CONTEXT *context, const char *from, const char *to);
