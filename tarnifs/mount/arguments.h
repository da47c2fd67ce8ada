// The command line: FUSE's arguments, and "-devopt" with the location id as the
// last two.
#pragma once

#include <cstdint>
#include <string>

struct ARGUMENTS {
    bool goOn = false;      // false: end with `status` after the message
    int status = 0;         // the process's exit status
    std::string message;    // what to say first; may be empty
    bool toError = false;   // the message goes to standard error
    int32_t locationId = 0; // bit pattern of an unsigned id above INT_MAX
    int fuseCount = 0;      // how many of argv FUSE gets
};

// Takes the location id out of argv (its two elements become null pointers) and
// says how to go on. Two arguments are always cut off for FUSE: without
// "-devopt" the last two are dropped, as programs that start mounts rely on, and
// the id is 0. Help, version and a command line that can't work are answered
// here, because later nobody reads standard error.
ARGUMENTS ParseArguments(int argc, char **argv);

// A location id in decimal; false when the text is none. Ids are unsigned; a
// negative number is how some programs print one above INT_MAX.
bool ParseLocationId(const char *text, int32_t *id);
