// How quorvelfs ends. Programs rely on the numbers, and quorvelfs(1) lists them.
#pragma once

enum class ExitStatus : int {
    Ok = 0,         // the volume answers; with -f: it was unmounted
    Failed = 1,     // anything else
    Usage = 2,      // the command line makes no sense
    MountPoint = 3, // it is missing, or no folder
    NoFuse = 4,     // no /dev/fuse, no fusermount3
    NotAllowed = 5, // to mount, there, or with these options
    Busy = 6,       // a volume is mounted there already, or what is left of one
    NoDevice = 7,   // mounted, but start-up failed: the volume stays, unusable
};
