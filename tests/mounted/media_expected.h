// What "Media" must show of a sample device, out of media_expected.txt.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Generation {
    const char *ios;
    bool cloud;
};

// A row that the device is asked about, or a folder.
struct ExpectedEntry {
    std::string name; // "" when it is not shown
    bool folder = false;
    std::string file;  // on the device, below its media root
    int64_t time = -1; // seconds since 1970; -1: now, -2: that of the file
};

struct ExpectedFolder {
    std::string path;
    std::string note; // "first", "again", "any order" or nothing
    std::vector<ExpectedEntry> entries;
};

struct ExpectedLine {
    std::string pattern; // as of fnmatch(3)
    int count = 1;       // -1: any
};

struct ExpectedMedia {
    std::vector<ExpectedFolder> folders;
    std::vector<ExpectedLine> log;
};

ExpectedMedia ReadExpectedMedia(const Generation &generation);
