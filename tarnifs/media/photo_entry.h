// One file of a photo folder.
#pragma once

#include <cstdint>
#include <string>

#include "tarnifs/media/listing.h"

// What a row of a photo query says. Dates are seconds since 1970, 0: not known.
struct PHOTO_ROW {
    std::string logName;    // names the row in log lines
    std::string name;       // recorded when the picture was taken or imported
    std::string devicePath; // on the media file system
    std::string filmPath;   // live photos: the film's
    int64_t size;           // bytes, as the database has it
    int32_t momentDate;
    int32_t modifyDate;
    int32_t createDate; // not of cloud rows
    int32_t master;     // cloud rows: key of the picture a resource belongs to
    int32_t subtype;
};

// Reads a row. False when it names no file below the media root.
bool TakePhotoRow(const Statement &query, bool is_cloud, PHOTO_ROW *row);

// Makes the row's entry in the listed folder: the file, or with `subtype` 2 the
// film of a live photo. `last_master` (cloud rows only) is the master of the
// listing's last entry, so that a picture's further resources, which follow it,
// make none. 0; -1 when the row is left out; -2 without memory.
int GetPhotoFromDevice(MEDIA_LISTING *listing, const PHOTO_ROW &row,
                       bool is_cloud, int subtype, int *last_master);
