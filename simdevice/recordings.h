// Makes the voice memos and the database that tells of them, where the version
// keeps them in the media file system.
#pragma once

#include "simdevice/file_maker.h"
#include "simdevice/photo_library.h"

namespace sim
{

// Failures are told by the maker's problem().
void makeRecordings(FileMaker &maker, const LibraryOptions &options);

} // namespace sim
