// Copies inside the device, from one file to another: what every move across
// areas is made of. A source may only be removed after CopyFile succeeded: the
// whole copy is then confirmed and its file closed.
#pragma once

#include <cstdint>
#include <string>

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"

// A house-arrest client of one move. Ends with it, a second time when the first
// try fails.
class HouseClient
{
  public:
    HouseClient() = default;
    ~HouseClient();
    HouseClient(const HouseClient &) = delete;
    HouseClient &operator=(const HouseClient &) = delete;

    // Both steps; the lines of a failure end in `word` (", ret" or ". error")
    // and the code. 0 or the device's code.
    int open(const _CONTEXT *context, const char *appId, const char *self,
             const char *word);
    // Ends it now; after a failure the destructor tries once more.
    int close();

    libiusb_afc *handle = nullptr;
};

// An open device file; closed with the record.
class DeviceFile
{
  public:
    DeviceFile() = default;
    ~DeviceFile();
    DeviceFile(const DeviceFile &) = delete;
    DeviceFile &operator=(const DeviceFile &) = delete;

    int open(libiusb_afc *connection, const std::string &path, int mode);
    int close();

    libiusb_afc *afc = nullptr;
    libiusb_file file = 0;
};

// A source that was announced to the device layer. What was sent ahead for it
// and not taken by an OpenSource is given up with the record, or the device
// would keep the file open.
class Announcement
{
  public:
    Announcement() = default;
    ~Announcement();
    Announcement(const Announcement &) = delete;
    Announcement &operator=(const Announcement &) = delete;

    void make(libiusb_afc *connection, const std::string &path);
    void taken() { afc = nullptr; }
    void giveUp(); // also done by the destructor

  private:
    libiusb_afc *afc = nullptr;
};

// One file on its way. The connections may be one.
struct FILE_COPY {
    const char *self; // who logs
    const char *from; // volume paths
    const char *to;
    libiusb_afc *sourceAfc;
    std::string sourcePath; // device paths
    libiusb_afc *targetAfc;
    std::string targetPath;
    Announcement announcement = {};
    DeviceFile source = {};
    DeviceFile target = {};
    libiusb_afc_file_info info = {}; // of the source
    bool sourceStays = false;        // it is not removed afterwards
};

// Tells the device layer that the source is about to be asked about and read.
void AnnounceSource(FILE_COPY &copy);

// Asking for the source's information and opening an end; the caller logs. 0 or
// the device's code.
int AskSource(FILE_COPY &copy);
int OpenSource(FILE_COPY &copy);
int OpenTarget(FILE_COPY &copy);

// Copies what the source's information promised, and what it has grown by, into
// the target from its beginning; both ends are open. Logged. Closes the target
// whatever happens; the source stays open, but nothing more can be read from it.
// 0 only when all of it is confirmed. A source that has become shorter is a
// failure, and so is one that changed its size by the end when it is to go.
int CopyFile(FILE_COPY &copy);

// After a failure that left an unfinished target: its record gets the size that
// the device has, or, when the device can't tell, its folder will be listed
// anew.
void NoteUnfinished(const FILE_COPY &copy, _KTL_OBJECT *folder,
                    _KTL_OBJECT *target);
