// Makes iTunes_Control/iTunes/MediaLibrary.sqlitedb and the songs, films and
// podcasts that it tells of.
#pragma once

#include "simdevice/file_maker.h"
#include "simdevice/photo_library.h"

namespace sim
{

// Failures are told by the maker's problem().
void makeMediaLibrary(FileMaker &maker, const LibraryOptions &options);

} // namespace sim
