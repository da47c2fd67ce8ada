// Every exit status and every sentence of `quorvel`, in one table. A sentence
// ends a command with the status beside it; "{}" stands for what is named.
#pragma once

#include <string>
#include <vector>

namespace helper
{

// Programs rely on these numbers.
enum class Status : int {
    Ok = 0,
    Failed = 1,           // something of the machine's own failed
    Usage = 2,            // the command line makes no sense
    NoDevice = 3,         // no device, or none of that name
    Ambiguous = 4,        // several devices, or several of that name
    Locked = 5,           // stayed locked for as long as was waited
    NotTrusted = 6,       // nobody tapped Trust for as long as was waited
    TrustDenied = 7,      // somebody tapped "Don't Trust"
    NoDaemon = 8,         // usbmuxd does not answer
    NoFuse = 9,           // no /dev/fuse, no fusermount3
    NotAllowed = 10,      // to mount there, or to unmount that
    AlreadyMounted = 11,  // the device has its volume
    MountPointInUse = 12, // not empty, or mounted on
    MountPointBad = 13,   // no folder
    NoProgram = 14,       // quorvelfs is not installed
    StartFailed = 15,     // the volume was mounted and could not start
    NoAnswer = 16,        // the volume did not answer in time
    NotMounted = 17,      // no such volume
    Busy = 18,            // programs use the volume
    DeviceFailed = 19,    // the device answered with an error
    CopyIncomplete = 20,  // at least one file was not copied
    PipeUnusable = 21,    // the name of the pipe is taken
    Interrupted = 130,
};

// How a command, or a step of one, ended: Ok, or a sentence that says why not.
struct Result {
    Status status = Status::Ok;
    std::string sentence;

    bool ok() const { return status == Status::Ok; }
};

struct Message {
    Status status;
    const char *sentence;
};

// The message with each "{}" replaced by the next of `parts`. Parts may hold
// anything a device or a path is called: what could move a terminal's cursor is
// replaced.
Result refuse(const Message &message,
              const std::vector<std::string> &parts = {});
std::string fill(const char *sentence, const std::vector<std::string> &parts);

namespace message
{

inline constexpr Message UNKNOWN_COMMAND = {
    Status::Usage, "There is no command \"{}\"; see quorvel --help."};

// Devices
inline constexpr Message NO_DAEMON = {
    Status::NoDaemon, "usbmuxd does not answer. Is it installed and running?"};
inline constexpr Message NO_DEVICE = {
    Status::NoDevice, "No device is attached. Plug one in over USB."};
inline constexpr Message UNKNOWN_DEVICE = {
    Status::NoDevice, "No attached device is called \"{}\"; see quorvel list."};
inline constexpr Message DEVICE_GONE = {Status::NoDevice, "{} was unplugged."};
inline constexpr Message SEVERAL_DEVICES = {
    Status::Ambiguous, "Several devices are attached; say which one: {}."};
inline constexpr Message AMBIGUOUS_DEVICE = {
    Status::Ambiguous,
    "\"{}\" may be each of these; use the location id or the UDID: {}."};
inline constexpr Message LOCKED = {Status::Locked,
                                   "{} is locked. Unlock it and try again."};
inline constexpr Message NOT_TRUSTED = {
    Status::NotTrusted,
    "{} still does not trust this computer. Unlock it, tap Trust and try "
    "again."};
inline constexpr Message TRUST_DENIED = {
    Status::TrustDenied,
    "Somebody tapped \"Don't Trust\" on {}. Plug it in again to be asked "
    "again."};
inline constexpr Message DEVICE_FAILED = {Status::DeviceFailed,
                                          "{} does not work with us: {}."};

// Mounting
inline constexpr Message NO_FUSE = {
    Status::NoFuse,
    "{} is missing. Load the fuse module (modprobe fuse), or give the "
    "container that device."};
inline constexpr Message NO_FUSERMOUNT = {
    Status::NoFuse, "fusermount3 is missing. Install the package fuse3."};
inline constexpr Message NO_PROGRAM = {
    Status::NoProgram, "quorvelfs is neither beside quorvel nor on the PATH."};
inline constexpr Message NOT_ALLOWED = {Status::NotAllowed,
                                        "Mounting at {} is not allowed: {}"};
inline constexpr Message FOLDER_NOT_OURS = {
    Status::NotAllowed, "You may not mount at {}: you cannot write there."};
inline constexpr Message ALREADY_MOUNTED = {Status::AlreadyMounted,
                                            "{} is already mounted at {}."};
inline constexpr Message POINT_IN_USE = {Status::MountPointInUse,
                                         "Something else is mounted at {}."};
inline constexpr Message POINT_NOT_EMPTY = {
    Status::MountPointInUse, "{} is not empty; a volume would hide what is in "
                             "it."};
inline constexpr Message POINT_NO_FOLDER = {Status::MountPointBad,
                                            "{} is not a folder."};
inline constexpr Message POINT_UNMADE = {
    Status::MountPointBad, "The folder {} could not be made: {}."};
inline constexpr Message START_FAILED = {
    Status::StartFailed,
    "The volume of {} could not start; the file system's log says why (in "
    "/var/log or ~/.local/state/quorvel)."};
inline constexpr Message MOUNT_FAILED = {Status::StartFailed,
                                         "{} could not be mounted: {}"};
inline constexpr Message BAD_OPTIONS = {
    Status::Usage, "{} could not be mounted with these options: {}"};
inline constexpr Message NO_ANSWER = {
    Status::NoAnswer, "The volume of {} did not answer within {}."};
inline constexpr Message INTERRUPTED = {Status::Interrupted, "Interrupted."};

inline constexpr Message OTHER_MOUNT = {
    Status::Busy, "Another quorvel is mounting something; try again."};

inline constexpr Message NO_NAMESPACE = {
    Status::NotAllowed, "The mount namespace {} can't be entered: {}."};

// Unmounting
inline constexpr Message NOTHING_MOUNTED = {Status::NotMounted,
                                            "Nothing is mounted."};
inline constexpr Message NOT_MOUNTED = {
    Status::NotMounted, "\"{}\" is no mounted device and no mount point."};
inline constexpr Message SEVERAL_MOUNTED = {
    Status::Ambiguous, "Several volumes are mounted; say which one: {}."};
inline constexpr Message BUSY = {
    Status::Busy, "A program still uses {}. Close its files and leave the "
                  "folder, or use --force."};
inline constexpr Message UNMOUNT_NOT_ALLOWED = {
    Status::NotAllowed, "The volume at {} belongs to another user."};
inline constexpr Message UNMOUNT_FAILED = {Status::Failed,
                                           "{} could not be unmounted: {}"};

// Copying
inline constexpr Message DEVICE_NOT_MOUNTED = {
    Status::NotMounted, "{} is not mounted; use quorvel mount first."};
inline constexpr Message NO_TARGET_FOLDER = {Status::Failed,
                                             "{} could not be made: {}."};
inline constexpr Message TARGET_NO_FOLDER = {
    Status::Usage, "{} is a file; a folder is needed there."};
inline constexpr Message COPY_INCOMPLETE = {Status::CopyIncomplete,
                                            "Not everything was copied."};
inline constexpr Message COPY_GONE = {
    Status::CopyIncomplete,
    "The volume is gone; run the same command again when the device is "
    "back."};
inline constexpr Message COPY_INTERRUPTED = {
    Status::Interrupted,
    "Interrupted; the same command goes on where this one ended."};

// Why a single file or folder was not copied; shown behind its name.
inline constexpr const char *COPY_INTO_ITSELF = "would be copied into itself";
inline constexpr const char *COPY_SAME_NAME =
    "another file of this copy has the same target";
inline constexpr const char *COPY_SKIPPED_LINK = "a link, left out";
inline constexpr const char *COPY_SKIPPED_SPECIAL =
    "neither file nor folder, left out";
inline constexpr const char *COPY_REFUSED =
    "refused by the volume, which shows why in a message of its own";
inline constexpr const char *COPY_SHORTER =
    "ended early: {} of {} bytes could be read";
inline constexpr const char *COPY_WRONG_SIZE =
    "has {} bytes at the target instead of {}";

// The pipe
inline constexpr Message PIPE_NOT_A_PIPE = {
    Status::PipeUnusable, "{} is not a pipe; somebody else made it. Going on "
                          "without transfers."};
inline constexpr Message PIPE_OWNED = {
    Status::PipeUnusable,
    "Another quorvel watch already reads {}. Going on without transfers."};
inline constexpr Message PIPE_FAILED = {
    Status::PipeUnusable,
    "{} could not be used: {}. Going on without transfers."};

// What a person is told on the way
inline constexpr const char *ASK_UNLOCK =
    "Unlock {}, then tap Trust when it asks.";
inline constexpr const char *ASK_TRUST = "Tap Trust on {}.";
inline constexpr const char *MOUNTED = "{} is mounted at {}.";
inline constexpr const char *UNMOUNTED = "{} is unmounted.";
inline constexpr const char *WATCHING = "Watching; Ctrl-C ends it.";
inline constexpr const char *DAEMON_BACK = "usbmuxd answers.";
inline constexpr const char *ATTACHED = "{} is attached.";
inline constexpr const char *DETACHED = "{} was unplugged.";
inline constexpr const char *DIED =
    "The volume of {} has died; the file system's log may tell why.";
inline constexpr const char *KEPT = "{} stays mounted.";

} // namespace message

} // namespace helper
