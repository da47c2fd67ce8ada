// Open files: a handle of the device, the position it is at, and what is read
// ahead of the caller.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include "device/afc_handle.h"

namespace iusb
{

// A piece of a file that was asked for, or is there.
struct AfcChunk {
    uint64_t offset = 0;
    size_t want = 0;
    uint64_t seek_packet = 0; // the seek that goes before it; 0: none
    uint64_t packet = 0;
    bool settled = false; // the reply was taken into `bytes`
    AfcBytes bytes;

    uint64_t end() const { return offset + (settled ? bytes.size : want); }
};

constexpr uint64_t kNowhere = UINT64_MAX;

// What was written and not yet confirmed.
struct AfcBehind {
    struct Part {
        uint64_t packet;
        AfcBytes bytes; // stay until the answer is there
    };
    std::deque<Part> parts;
    size_t unconfirmed = 0; // bytes of them
    AfcBytes gathered;      // not sent yet
    uint64_t next = 0;      // where a write goes on
    int code = 0;           // the first failure
    bool told = false;      // a drain has told it
};

struct AfcFile {
    libiusb_afc *owner = nullptr;
    std::shared_ptr<AfcConnection> connection;
    uint64_t handle = 0; // the device's number
    int mode = 0;
    // Where the device's position will be after everything sent so far; not
    // known after a failure or a short reply.
    uint64_t position = 0;
    bool position_known = true;
    // Announced, and read while only other files are changed: a change does not
    // make what was read ahead, or the size, out of date.
    bool steady = false;

    // Reading. Chunks follow each other without gaps.
    std::deque<AfcChunk> chunks;
    uint64_t next = 0;   // where the last read ended
    unsigned streak = 0; // reads in a row that began there
    size_t ahead = 0;    // how far to read ahead, in bytes
    uint64_t changes = 0;
    int64_t used = 0;

    std::unique_ptr<AfcBehind> behind; // null: writes wait
    bool closing = false;              // the close is on its way
    uint64_t close_packet = 0;

    // Size, as far as it is known; out of date under another change count.
    uint64_t size = 0;
    uint64_t size_changes = 0; // 0: not known
    uint64_t size_packet = 0;  // information asked for together with the open
};

// Reads and writes at an offset; the contracts of libiusb_afc_file_read and
// _write. The connection is alive when they begin.
int readAt(AfcFile &file, char *buffer, uint32_t length, uint64_t offset,
           uint32_t &count);
int writeAt(AfcFile &file, const char *buffer, uint32_t length, uint64_t offset,
            uint32_t &count);

// Brings the device's position to where a write begins.
int seekTo(AfcFile &file, uint64_t offset);

// A write that does not wait; the file's `behind` is there. Its failures are
// those of earlier writes.
int writeBehind(AfcFile &file, const char *buffer, uint32_t length,
                uint64_t offset, uint32_t &count);

// Sends what writeBehind has gathered.
void sendGathered(AfcFile &file);

// Waits for every confirmation; the first failure of all.
int drainBehind(AfcFile &file);

// Sends the close, behind whatever was written; once.
void closeAhead(AfcFile &file);

// A file whose opening for reading was announced: asked about and opened ahead.
struct FileAhead {
    libiusb_afc *owner = nullptr;
    std::string path;
    std::shared_ptr<AfcConnection> connection;
    uint64_t info_packet = 0; // 0: taken
    uint64_t open_packet = 0; // 0: settled
    int open_code = 0;
    std::unique_ptr<AfcFile> file;
};

// Announces a file; null gives up what was announced.
int prefetchFile(libiusb_afc *afc, const char *path);

// What was announced for this path on the handle, if it is still of use.
FileAhead *aheadFor(const libiusb_afc &afc, const char *path);

// Takes the answer to the opening; nothing happens when it was taken.
void settleAhead(FileAhead &ahead);

// Likewise, and begins to read a file of the size given.
void beginReading(FileAhead &ahead, uint64_t size);

// Starts reading ahead from the beginning of a file just opened.
void readFromStart(AfcFile &file);

// Gives up everything read ahead.
void dropChunks(AfcFile &file);

// Takes the answer of the information request that went with the open.
int settleSize(AfcFile &file);

// Tells that the device was changed through this layer.
inline void noteChange(libiusb_context &context)
{
    context.changes++;
}

// Closes every file that was opened through the handle.
void closeFilesOf(libiusb_afc &afc);

} // namespace iusb
