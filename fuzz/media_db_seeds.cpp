// Writes the first inputs for media_db_fuzz into a folder: small databases of
// an old and a new generation. Run by hand when the samples change.
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/handlers/media_samples.h"

namespace
{

// The byte that media_db_fuzz reads: which file, on which version.
void write(const std::string &folder, const char *name, int file, int version,
           const std::string &bytes)
{
    std::ofstream out(folder + "/" + name, std::ios::binary);
    out << static_cast<char>(file + 5 * version) << bytes;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];
    const SampleMemos memos = {{"Talk", "/var/mobile/Media/Recordings/a.m4a"},
                               {"Short", "a.m4a"}};
    write(folder, "media_library", 0, 2,
          MediaDatabase(
              {{"A", "T", "a.mp3"},
               {"A", "T", "a.mp3"},
               {nullptr, "Film", "a.mp3", "iTunes_Control/Music/F00", 5, 1024},
               {"P", "cast", "a.mp3", "iTunes_Control/Music/F00", 5, 4}}));
    write(folder, "photos_8", 1, 0, PhotoDatabase(IOS_8));
    write(folder, "photos_9_cloud", 1, 1, PhotoDatabase(IOS_9_CLOUD));
    write(folder, "photos_17", 1, 2, PhotoDatabase(IOS_17));
    write(folder, "recordings", 3, 0, RecordingsDatabase(memos));
    write(folder, "cloud_recordings", 4, 2, CloudRecordingsDatabase(memos));
    write(folder, "photos_no_log", 2, 2, "not a log");
    return 0;
}
