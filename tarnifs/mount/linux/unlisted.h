// Names that begin with "." below the top level. No listing shows those that
// the device brought along, so a lookup asks the device about each of them, once.
//
// What is found gets a catalogue record that is in no folder's list (a linked
// one would be listed, and would make its folder look listed); what is not is
// remembered as missing. All functions are called with the gate held; those that
// ask or forget take tarni_mutex.
#pragma once

#include <string>

#include "tarnifs/mount/context.h"

// Whether a path is one that the device was asked about and has.
bool IsUnlistedFound(const std::string &path);

// Asks the device about a path, whose last component begins with ".", unless the
// answer is known. 0: it is there now, with a record. -ENOENT, or -EIO when the
// device could not answer.
int AskAboutUnlisted(_CONTEXT *context, const std::string &path);

// Whether the device has by now a file or folder that no listing showed, at a
// path that is about to be made. 0: it has, and a record in its folder's list.
// -ENOENT, or -EIO when the device could not answer.
int AskAboutAppeared(_CONTEXT *context, const std::string &path);

// Whether the device has something at a path, whatever the catalogue says. 0,
// -ENOENT, or -EIO when it could not answer.
int AskIfThere(_CONTEXT *context, const std::string &path);

// Asks the device for the names that listings of a folder left out, if any, and
// puts them into the folder's list: from then on they show. Files that a mount
// which was killed had removed while they were open are removed now.
void ShowLeftOut(_CONTEXT *context, const std::string &folder);

// What was found or missed at this path or below may have changed: forgets it,
// with the records that nothing but this knows.
void ForgetUnlisted(const std::string &path);
