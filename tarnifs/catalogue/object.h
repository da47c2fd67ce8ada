// The object catalogue: one record for every path the volume has shown, in one
// map from full volume path to record, and in a tree of child lists. The map
// gives look-up, the tree gives listing and recursive removal. Nothing of it is
// persisted.
//
// Paths are full volume paths without a trailing "/"; the root is "/". All
// functions are called with tarni_mutex held.
#pragma once

#include <cstdint>
#include <string>

#include <boost/unordered_map.hpp>

// A link of a circular doubly-linked list; a list head is one too. An empty
// head and an element that is in no list point at themselves.
struct _KTL_LIST {
    _KTL_LIST *next;
    _KTL_LIST *prev;
};

// Extended attribute: the stored bytes followed by one NUL.
struct _KTL_XATTR {
    _KTL_XATTR *next;
    char *name;
    char *value;
};

enum _KTL_TYPE : uint32_t {
    KTL_ORDINARY = 0,
    KTL_TEMPORARY = 2,     // to be discarded by CleanupTmpObject; nothing
                           // assigns it at present
    KTL_DEVICE_FOLDER = 3, // stands for a device location
    KTL_DEVICE_FILE = 4,   // stands for a device file
    KTL_STAGED = 5,        // contents are in the private folder, not yet on the
                           // device
};

constexpr uint16_t KTL_MODE_FILE = 0x8000;
constexpr uint16_t KTL_MODE_FOLDER = 0x4000;

// One per path. Packed: pass fields by value, take out-parameters through
// locals. The record owns its strings and its attributes.
struct __attribute__((packed)) _KTL_OBJECT {
    _KTL_LIST child_list; // head; elements are the children's `sibling` links
    _KTL_LIST sibling;    // membership in the parent's child_list
    uint32_t type;        // _KTL_TYPE
    uint32_t sub_type;    // number given by the media listing, else 0
    uint32_t open_count;  // open handles; on a folder also those of children
    uint8_t enumerated;   // 1: the folder's contents have been listed
    uint64_t hhandle;     // libiusb_afc*: house-arrest connection, 0: none
    uint64_t file_handle; // libiusb_file: open device file, 0: none
    uint64_t size;        // bytes
    uint16_t mode;        // KTL_MODE_*, never permission bits
    int64_t birth_time;   // seconds since 1970, as the two below
    int64_t modify_time;
    int64_t access_time;
    char *file_name;   // last path component as given when it was named
    char *app_id;      // bundle identifier of the app that holds the item
    char *device_path; // where it differs from the volume path
    _KTL_XATTR *xattr_list;
    uint8_t writing;      // 1: a write made the file longer
    uint8_t reading;      // 1: read through to the last byte
    uint64_t read_offset; // end of the contiguous run read from offset 0
};

using ObjectMap = boost::unordered_map<std::string, uint64_t>;

// Full volume path -> address of the record; 0 is the same as a missing key
// (look-ups leave such entries behind).
extern ObjectMap Object_list;

// The record of a path, made and registered when there is none; never null.
// Neither named nor linked into its parent by this function.
_KTL_OBJECT *GetObject(const char *path);

// GetObject, and a record without a name gets the text after the last "/".
_KTL_OBJECT *GetObjectWithFileName(const char *path);

// The record of a path, or null; never makes one.
_KTL_OBJECT *FindObject(const char *path);

// The record of the path's parent folder, or null.
_KTL_OBJECT *GetParentObject(const char *path);

// Links a record at the tail of a folder's child list; one that is in a list
// already is moved there. Listings show children in this order.
void LinkChild(_KTL_OBJECT *parent, _KTL_OBJECT *child);

// Takes a record out of whatever list it is in.
void UnlinkObject(_KTL_OBJECT *object);

// Whether the record is in some folder's list.
bool IsLinked(const _KTL_OBJECT *object);

// The record a list element belongs to.
_KTL_OBJECT *ObjectOfSibling(_KTL_LIST *link);

// The two list links of a record. (The record is packed, so the compiler would
// rather not have their addresses taken; both are aligned.)
_KTL_LIST *ChildList(_KTL_OBJECT *object);
const _KTL_LIST *ChildList(const _KTL_OBJECT *object);
_KTL_LIST *SiblingLink(_KTL_OBJECT *object);
const _KTL_LIST *SiblingLink(const _KTL_OBJECT *object);
bool HasChildren(const _KTL_OBJECT *object);

// Makes a record a folder or a file of the present time (birth, modify,
// access).
void SetPresentTimes(_KTL_OBJECT *object);

// Gives a string field an owned copy of `text` (null: none), freeing what it
// held. Used as object->app_id = ReplaceString(object->app_id, text).
char *ReplaceString(char *old, const char *text);

// Ends the house-arrest connection of a folder's record, if any. 0 or the
// device's code; after a failure the record still holds it.
int EndHouseArrest(_KTL_OBJECT *folder);

// Likewise, but a failed ending is tried once more: a connection whose ending
// failed is still there, and nobody would know it any more. 0 or the code of the
// first try; the record holds none afterwards either way.
int CloseHouseArrest(_KTL_OBJECT *folder);

// Frees one record: unlinks it, closes its device file and its house-arrest
// connection (results not looked at), frees what it owns, and erases the entry
// under `path` and under the path's converted form, or wherever the record was
// entered when it is under neither. Children are not touched. A null object, or
// no mount context: nothing happens.
void DeleteObject(_KTL_OBJECT *object, const char *path);

// Frees all descendants of `object`, whose own volume path is `path`.
void DeleteChildObject(_KTL_OBJECT *object, const char *path);

// Frees every KTL_TEMPORARY record in a child list; `path` is the path of the
// folder that owns the list.
void CleanupTmpObject(const char *path, _KTL_LIST *list_head);

// Frees every record of the map in the manner of DeleteObject and empties it;
// for start-up (a fresh catalogue) and shut-down. `afc` is the main connection.
struct libiusb_afc;
void ClearCatalogue(libiusb_afc *afc);

// A listing of a folder that failed half-way leaves the records that it made, in
// the map and linked, but they are not the folder's contents. Whoever lists says
// how it ended; a folder that is marked so is listed from the device again.
void NoteListing(const _KTL_OBJECT *folder, bool complete);
bool IsListingUnfinished(const _KTL_OBJECT *folder);

// A listing left out a name of the device's because it begins with ".". A folder
// that looks empty may then not be.
void NoteLeftOut(const _KTL_OBJECT *folder);
bool HasLeftOut(const _KTL_OBJECT *folder);

// Whether a record, or one below it, is open or staged: what it holds is nowhere
// else.
bool HoldsOpenOrStaged(_KTL_OBJECT *object);

// After a call that changes the device and whose answer was lost: nobody knows
// what is at the path now. Its record stays, but marked, unless something in it
// is open or staged; and its folder counts as not listed, so that the next look
// asks the device. The mark goes when the record is linked anew, or with it.
void NoteDoubtful(const char *path);
bool IsDoubtful(const _KTL_OBJECT *object);

// Deletes what an unfinished listing of the folder made, so that the next try
// starts afresh; a folder that is not marked keeps everything. Records (and
// folders of records) that are open or staged stay: what they hold is nowhere
// else. The mark stays until a listing is complete.
void DropUnfinishedListing(const char *path);

// Walks the map and the tree and returns an empty text, or what is wrong: broken
// links, a record in a list that the map does not hold, a child under the wrong
// folder, counts or modes that can't be. For tests and debug builds.
std::string CheckCatalogue();
