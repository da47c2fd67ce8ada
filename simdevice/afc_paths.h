// Paths of an AFC connection and the files they mean. A connection sees one
// folder of the host as its root and never leaves it, neither through ".." nor
// through links.
#pragma once

#include <string>
#include <vector>

#include "simdevice/afc_packet.h"

namespace sim
{

struct AfcRoot {
    std::string folder;
    bool documentsOnly = false; // an app's container: only /Documents is there
};

// A path in its parts, without ".", ".." and empty ones.
using PathParts = std::vector<std::string>;
PathParts splitPath(const std::string &path);

enum class LastPart { follow, keep }; // a link at the end of the path

// The host path for `parts` in `full`. The result is a status: success also if
// the last part does not exist; not found if one before it does not; read error
// below a file; permission denied outside the root.
uint64_t locate(const AfcRoot &root, const PathParts &parts, LastPart last,
                std::string &full);

// True for what the connection must not remove or rename: its root, and an
// app's Documents folder.
bool isFixed(const AfcRoot &root, const PathParts &parts);

} // namespace sim
