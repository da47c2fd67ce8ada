// Names have several spellings: the Finder sends them decomposed, programs and
// shells as they like, and the device has its own. All functions are called with
// the gate held.
#pragma once

#include <string>

// `path` with every component in the spelling that its record has, so that all
// spellings of a folder share one list of children and the device gets its own
// spelling back. Components without a record stay as they are, and so does the
// whole path when there is no mount context.
std::string Spelled(const char *path);

// Whether a spelled path may be shown: false for a record that is in no folder's
// list (what a failed create or move leaves behind) and for one of which nobody
// knows whether it is still there. A path without a record is for the handlers
// to judge.
bool MayBeShown(const std::string &path);

// Whether a spelled path has a record that is a folder.
bool IsFolder(const std::string &path);
