// The device layer: everything the file system and the helper ask of an iOS
// device goes through this plain C-style interface, and nothing else of a
// device is known outside of `device/`.
//
// Promises common to all calls
//  - A result of 0 is success; every failure is one of the negative
//    LIBIUSB_ERROR_* codes below. Outputs are cleared before anything else
//    happens, so that after a failure they hold null, 0 or an empty record.
//  - Every wait has a limit. A connection that is closed, silent or answers
//    nonsense costs the call LIBIUSB_ERROR_LOST_CONNECTION and itself; the next
//    call on the same handle starts a new connection if the device is still, or
//    again, there (same UDID, whatever its new location id).
//    The limit is 10 s without any progress; the environment variable
//    QUORVEL_TIMEOUT_MS (50 to 600000, read when a context is made) sets
//    another. A call on a device that went silent ends after about that time.
//  - Several AFC requests are in flight at once. QUORVEL_AFC_WINDOW (1 to 4096)
//    sets the most; 1 turns that off, and nothing is read ahead then.
//  - No call throws, prints, or changes the process's signal handling (programs
//    that use the layer ignore SIGPIPE: TLS writes may raise it).
//  - A context and everything opened from it belong to one thread at a time
//    (the file system holds its lock around every call). Two contexts are
//    independent of each other.
#pragma once

#include <cstddef>
#include <cstdint>

// ---------------------------------------------------------------------------
// Codes
//
// The values from -14 to -70 are a contract with the file system, which tells
// some of them apart and shows others to the user as numbers. Every other code
// lies below -200, so that none can be mistaken for an errno value.
enum libiusb_error : int {
    LIBIUSB_SUCCESS = 0,
    LIBIUSB_ERROR_NO_DEVICE = -14, // the device is not in the list
    LIBIUSB_ERROR_MUX = -30,       // AFC status 30: the transfer broke off
    LIBIUSB_ERROR_LOST_CONNECTION = -32, // unplugged, closed, silent, nonsense
    LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY = -33,
    LIBIUSB_ERROR_DEVICE_LOCKED = -44, // not paired, and the trust prompt can't
                                       // show before the device is unlocked
    LIBIUSB_ERROR_TRUST_PENDING = -45, // the trust prompt is on the screen
    LIBIUSB_ERROR_NO_SPACE = -62,      // AFC status 18
    LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND = -70, // AFC status 8

    // AFC status n, for every n without a value of its own above, is -200 - n.
    LIBIUSB_ERROR_AFC_BASE = -200,
    LIBIUSB_ERROR_AFC_UNKNOWN = -201,
    LIBIUSB_ERROR_AFC_OP_HEADER_INVALID = -202,
    LIBIUSB_ERROR_AFC_NO_RESOURCES = -203, // too many open files on the device
    LIBIUSB_ERROR_AFC_READ = -204, // also: a path below a file; not a folder
    LIBIUSB_ERROR_AFC_WRITE = -205,
    LIBIUSB_ERROR_AFC_UNKNOWN_PACKET = -206,
    LIBIUSB_ERROR_AFC_INVALID_ARG = -207, // e.g. a file handle not open
    LIBIUSB_ERROR_AFC_OBJECT_IS_DIR = -209,
    LIBIUSB_ERROR_AFC_PERM_DENIED = -210,
    LIBIUSB_ERROR_AFC_SERVICE_NOT_CONNECTED = -211,
    LIBIUSB_ERROR_AFC_OP_TIMEOUT = -212,
    LIBIUSB_ERROR_AFC_TOO_MUCH_DATA = -213,
    LIBIUSB_ERROR_AFC_END_OF_DATA = -214,
    LIBIUSB_ERROR_AFC_OP_NOT_SUPPORTED = -215,
    LIBIUSB_ERROR_AFC_OBJECT_EXISTS = -216,
    LIBIUSB_ERROR_AFC_OBJECT_BUSY = -217,
    LIBIUSB_ERROR_AFC_WOULD_BLOCK = -219,
    LIBIUSB_ERROR_AFC_IO = -220, // also: reads stay empty before the end
    LIBIUSB_ERROR_AFC_INTERRUPTED = -221,
    LIBIUSB_ERROR_AFC_IN_PROGRESS = -222,
    LIBIUSB_ERROR_AFC_INTERNAL = -223,
    LIBIUSB_ERROR_AFC_OTHER = -299, // a status above 98

    // Host side and lockdown.
    LIBIUSB_ERROR_INVALID_ARG = -301, // a null or foreign handle, an empty path
    LIBIUSB_ERROR_NO_MEMORY = -302,
    LIBIUSB_ERROR_NO_DAEMON = -303, // no usbmux socket, or nobody answers on it
    LIBIUSB_ERROR_PROTOCOL = -304,  // usbmux or lockdown answered nonsense, or
                                    // file information cannot be understood
    LIBIUSB_ERROR_TRUST_DENIED = -310, // the user tapped "Don't Trust"
    LIBIUSB_ERROR_PAIRING_FAILED = -311,
    LIBIUSB_ERROR_LOCKDOWN = -312,           // any other lockdown refusal
    LIBIUSB_ERROR_PASSWORD_PROTECTED = -313, // paired, but locked since start
    LIBIUSB_ERROR_TLS = -314,
    LIBIUSB_ERROR_INVALID_SERVICE = -320,
    LIBIUSB_ERROR_SERVICE_LIMIT = -321, // too many services of this kind
    LIBIUSB_ERROR_SERVICE_REFUSED = -322,
    LIBIUSB_ERROR_APP_LOOKUP_FAILED = -330, // no such app
    LIBIUSB_ERROR_APP_ACCESS_DENIED = -331, // the app does not share documents
    LIBIUSB_ERROR_INSTPROXY = -332,         // any other installation proxy or
                                            // house arrest refusal
};

// A short English text for a code ("lost connection"), for logs and the helper.
// Never null; "unknown error" for a number that is no code.
const char *libiusb_strerror(int code);

// ---------------------------------------------------------------------------
// Handles. All opaque; a file handle is a number so that catalogue records can
// hold it. 0 and null mean "none".
struct libiusb_context;
struct libiusb_device;
struct libiusb_instproxy;
// An AFC connection: to the media file system (libiusb_afc_init) or to one
// app's sandbox (libiusb_housearrest_init and _openapp). Every libiusb_afc_*
// call takes either kind.
struct libiusb_afc;
using libiusb_file = uint64_t;

// ---------------------------------------------------------------------------
// Library and context

// Call once before anything else. `resources` (the application's resource
// folder) is accepted and not needed here; `flags` is accepted. Always 0.
int libiusb_init_ex(const char *resources, int flags);

// A new context in *out; libiusb_context_exit frees it. Does not touch the
// usbmux socket.
int libiusb_context_init(libiusb_context **out);

// Frees the context and the device list it owns. Everything opened from it must
// have been closed before. A null context is ignored. Always 0.
int libiusb_context_exit(libiusb_context *context);

// ---------------------------------------------------------------------------
// Devices

// What is known of a device. The offsets noted are a contract.
struct libiusb_device_info {
    uint32_t usbmux_id;      //   0  number of this plug-in in the usbmux daemon
    int32_t state;           //   4  0, or the code that made the device
                             //      unreadable beyond the list (untrusted, ...)
    uint32_t location_id;    //   8  where it is plugged in; 0: not over USB
    uint32_t product_id;     //  12  USB product number
    uint64_t block_size;     //  16  bytes; never 0 on an opened device
    uint64_t total_capacity; //  24  bytes
    uint64_t free_capacity;  //  32  bytes
    char udid[64];           //  40
    char product_type[64];   // 104  "iPhone14,2"
    char device_class[64];   // 168  "iPhone"
    char build_version[64];  // 232  "21F90"
    char ios_version[16];    // 296  "17.5.1"
    char device_name[288];   // 312  UTF-8, cut at a whole character
};
static_assert(sizeof(libiusb_device_info) == 600);
static_assert(offsetof(libiusb_device_info, location_id) == 8);
static_assert(offsetof(libiusb_device_info, block_size) == 16);
static_assert(offsetof(libiusb_device_info, total_capacity) == 24);
static_assert(offsetof(libiusb_device_info, free_capacity) == 32);
static_assert(offsetof(libiusb_device_info, ios_version) == 296);
static_assert(offsetof(libiusb_device_info, device_name) == 312);

// The attached devices as a null-terminated array in *list, in the usbmux
// daemon's order, Wi-Fi entries included (their location id is 0). The array
// and its devices belong to the context and live until the next call of this
// function on it or its exit. No device attached: success, an empty array.
// NO_DAEMON without a socket or with a refused connection; PROTOCOL when what
// answers there is no usbmux daemon.
int libiusb_device_get_list(libiusb_context *context, libiusb_device ***list);

// Fills *info for a listed or an opened device. A listed one needs only the
// list and what lockdown tells without a session (name, version, model): an
// untrusted, locked or silent neighbour still succeeds, with `state` telling
// why fields are empty, after at most about two seconds. An opened one must
// give capacities too (AFC device information).
int libiusb_device_get_info(libiusb_device *device, libiusb_device_info *info);

// What the list alone tells of a device: plug-in number, location, product
// number and UDID. Asks nothing of the device, so it may be called often.
int libiusb_device_get_place(libiusb_device *device, libiusb_device_info *info);

// Whether a listed device trusts this computer, found out without raising its
// prompt: 0 when a session could be started with the pair record that there is,
// TRUST_PENDING when there is none or the device no longer knows it.
int libiusb_device_get_trust(libiusb_device *device);

// Pairs if needed (TRUST_PENDING, DEVICE_LOCKED, TRUST_DENIED tell what the
// user has to do; the call may be repeated), starts a lockdown session and
// gives an opened device in *out, to be closed with libiusb_device_close. A
// pair record that the device no longer knows is deleted and made anew.
int libiusb_device_open(libiusb_device *device, libiusb_device **out);

// Ends the sessions of an opened device and frees it. Its AFC connections and
// installation proxy must have been closed before. Null is ignored. Always 0.
int libiusb_device_close(libiusb_device *device);

// ---------------------------------------------------------------------------
// AFC: files and folders
//
// Paths are absolute, UTF-8, with "/" as separator, in the connection's own
// root (for an app: "/Documents/...").

// A connection to the media file system (service com.apple.afc) of an opened
// device; libiusb_afc_exit closes it.
int libiusb_afc_init(libiusb_device *device, libiusb_afc **out);

// Closes the connection; files still open on it are closed with it. Null is
// ignored. 0, or NO_MEMORY with the handle as it was.
int libiusb_afc_exit(libiusb_afc *afc);

enum libiusb_file_type : int32_t {
    LIBIUSB_FILE_FOLDER = 4,
    LIBIUSB_FILE_REGULAR = 18,
    LIBIUSB_FILE_LINK = 20,
    LIBIUSB_FILE_OTHER = 21, // devices, pipes, sockets
};

struct libiusb_afc_file_info {
    int32_t file_type;   // libiusb_file_type
    uint64_t size;       // bytes
    int64_t birth_time;  // nanoseconds since 1970
    int64_t modify_time; // nanoseconds since 1970
};

// Information about one path (AFC GetFileInfo; a link itself, not its target).
// Answers sent ahead by a directory read or libiusb_afc_prefetch_info are taken
// in order and cost no round trip of their own. AFC_OBJECT_NOT_FOUND for a
// missing path, AFC_READ for one below a file.
int libiusb_afc_file_get_info(libiusb_afc *afc, const char *path,
                              libiusb_afc_file_info *info);

// Says that the next libiusb_afc_file_get_info calls will ask for these paths
// in this order: the requests go out ahead in a bounded window. Any other call
// on the connection drops what was not yet asked for. Copies the paths. The
// result tells only whether the connection could be used.
int libiusb_afc_prefetch_info(libiusb_afc *afc, const char *const *paths,
                              size_t count);

// The names in a folder, in the device's order, without "." and "..", and
// without names that could not be an entry (empty, or holding "/"). With a null
// `list` only *count is set; a call with a list that follows at once for the
// same path uses the same answer. With a list, information requests for the
// entries are sent ahead for the calls that follow: for those whose name does
// not begin with ".". The null-terminated array is freed with
// libiusb_misc_free_strings_array. AFC_READ when the path is a file.
int libiusb_afc_file_read_directory(libiusb_afc *afc, const char *path,
                                    char ***list, uint32_t *count);

// Frees an array of names; null is ignored.
void libiusb_misc_free_strings_array(char **list);

enum libiusb_file_mode : int {
    LIBIUSB_MODE_READ = 1,   // the file must exist
    LIBIUSB_MODE_WRITE = 3,  // created, or cut to 0 bytes
    LIBIUSB_MODE_APPEND = 5, // created; every write goes to the end
    LIBIUSB_MODE_UPDATE = 6, // created when missing, never cut; reads, and
                             // writes at the offset asked for (on the wire the
                             // read-write-create mode: a true append mode would
                             // ignore the offset)
};

// Opens a file. The device has few file handles (about two hundred):
// AFC_NO_RESOURCES when they are used up. The handle works with this connection
// only; with any other every call answers INVALID_ARG and sends nothing. After
// the connection was lost it answers LOST_CONNECTION and must still be closed.
int libiusb_afc_file_open(libiusb_afc *afc, const char *path, int mode,
                          libiusb_file *file);

// Reads up to `length` bytes at `offset` (bytes from the beginning). *count is
// less than `length` only at the end of the file. With a length of 0 nothing is
// asked of the device: success while the handle is of use, LOST_CONNECTION when
// its connection is gone.
int libiusb_afc_file_read(libiusb_afc *afc, libiusb_file file, void *buffer,
                          uint32_t length, uint64_t offset, uint32_t *count);

// Writes `length` bytes at `offset`. Returns only after the device confirmed;
// after a failure *count tells how many bytes from the beginning it confirmed.
int libiusb_afc_file_write(libiusb_afc *afc, libiusb_file file,
                           const void *buffer, uint32_t length, uint64_t offset,
                           uint32_t *count);

// Copies inside the device
//
// A copy reads one file and writes another in order. These four keep its
// requests in flight; what is done on the device, and in which order, is what
// the calls between them say.

// Says that `path` is about to be asked about (libiusb_afc_file_get_info) and
// opened for reading (LIBIUSB_MODE_READ) on this handle, and read from its
// beginning: the requests go out now, and those calls take the answers, also
// when other files are opened in between. What is read ahead of the file stays
// good while other files are changed through this layer; the caller sees to it
// that this one is not. Any other call on the handle but one on an open file
// gives up what was not taken; a null path does no more than that. Failures show
// in the calls that were announced.
void libiusb_afc_prefetch_file(libiusb_afc *afc, const char *path);

// From now on writes to the file return before the device has confirmed them;
// a few MiB at most wait for that. A failure shows in a later write and in the
// drain. The file may not be read through this handle, and what other handles
// have read ahead is not given up before the drain.
int libiusb_afc_file_write_behind(libiusb_afc *afc, libiusb_file file);

// Waits until everything written behind is confirmed. The first failure of any
// of those writes; 0 when all of it is on the device.
int libiusb_afc_file_drain(libiusb_afc *afc, libiusb_file file);

// Says that libiusb_afc_file_close is the last call to come for this file, but
// for the drain: the close goes out behind what was written, and those calls
// take the answers.
void libiusb_afc_file_close_ahead(libiusb_afc *afc, libiusb_file file);

// Makes an open file `size` bytes long, cutting it or filling with zeros.
int libiusb_afc_file_set_size(libiusb_afc *afc, libiusb_file file,
                              uint64_t size);

// Closes a file. The handle is gone afterwards whatever the result, which for
// one written behind includes a failure that no drain has told.
int libiusb_afc_file_close(libiusb_afc *afc, libiusb_file file);

// Removes a file or an empty folder. AFC_DIR_NOT_EMPTY for a folder with
// entries, AFC_OBJECT_NOT_FOUND for a missing path.
int libiusb_afc_file_remove(libiusb_afc *afc, const char *path);

// Makes a folder and its missing parents; one that exists is a success (the
// device does not tell).
int libiusb_afc_make_directory(libiusb_afc *afc, const char *path);

// Renames as rename(2) does: an existing target file is replaced.
int libiusb_afc_rename(libiusb_afc *afc, const char *from, const char *to);

// ---------------------------------------------------------------------------
// House arrest: one app's sandbox

// A handle in *out that stands for no app yet. Makes sure that the device can
// be reached; ended with libiusb_housearrest_exit.
int libiusb_housearrest_init(libiusb_device *device, libiusb_afc **out);

// Binds the handle to an app's documents (house_arrest VendDocuments); from
// then on it serves as AFC connection whose "/Documents" is the app's folder.
// Handles share pooled connections (one per app, at most four alive), so that
// opening an app again soon costs nothing. APP_LOOKUP_FAILED,
// APP_ACCESS_DENIED, SERVICE_LIMIT when no connection could be had.
int libiusb_housearrest_openapp(libiusb_afc *house, const char *bundle_id);

// Ends the handle; files still open through it are closed. Null is
// INVALID_ARG. After any failure the handle is as it was and may be ended
// again.
int libiusb_housearrest_exit(libiusb_afc *house);

// ---------------------------------------------------------------------------
// Installation proxy: the installed apps

// One app that shares its documents. Strings and nodes are owned by the list.
struct libiusb_app {
    char *name;      // new char[]; display name, else name, else identifier
    char *bundle_id; // new char[]
    libiusb_app *next;
};

// A connection to the installation proxy of an opened device.
int libiusb_instproxy_init(libiusb_device *device, libiusb_instproxy **out);
int libiusb_instproxy_exit(libiusb_instproxy *instproxy);

// The installed apps that share documents (UIFileSharingEnabled), in the
// device's order, as a list that the caller frees: each node's two strings with
// delete[], the node with delete. No such app: success and null.
int libiusb_instproxy_getAppId(libiusb_instproxy *instproxy,
                               libiusb_app **list);
