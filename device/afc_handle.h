// What a libiusb_afc handle refers to: an endpoint (the media file system of a
// device, or one app's documents) with the connection it has at the moment.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device/afc_connection.h"
#include "device/deadline.h"

namespace iusb
{

struct AfcEndpoint {
    libiusb_device *device = nullptr;
    std::string bundle_id;                     // empty: the media file system
    std::shared_ptr<AfcConnection> connection; // null before it was first used
    int64_t used = 0;                          // when, in ms
};

// The names of the directory read last, for a call that follows at once.
struct DirectoryAnswer {
    std::string path;
    AfcBytes bytes;
    uint64_t changes = 0;
    int64_t time = 0;
};

// Information requests that were or will be sent ahead, in the order in which
// their answers are expected to be asked for.
struct InfoQueue {
    struct Entry {
        std::string name;
        uint64_t packet = 0; // 0: not sent yet
    };
    std::string base; // the folder that the names are in; empty: whole paths
    std::deque<Entry> entries;
    size_t sent = 0; // the first `sent` entries are in flight or answered
    std::shared_ptr<AfcConnection> connection;
    uint64_t changes = 0;
    int64_t used = 0;
};

struct FileAhead; // a file whose opening was announced; see afc_file.h

// What a call is, as far as it matters for what was read ahead.
enum class Call { Info, Directory, Open, Other };

// Gives the connection for a call on a path: the one there is, or a new one if
// that is gone. Drops the answers kept for other kinds of calls.
int afcBegin(libiusb_afc *afc, Call call, AfcConnection *&connection);

// Checks a path argument: absolute or relative, but not empty and not endless.
bool goodPath(const char *path);

// Gives up what is left of the queue.
void dropQueue(InfoQueue &queue);

// Gives up the file whose opening was announced, if any.
void dropAhead(libiusb_afc &afc);

} // namespace iusb

struct libiusb_afc {
    libiusb_context *context = nullptr;
    libiusb_device *device = nullptr;
    bool house = false;
    std::shared_ptr<iusb::AfcEndpoint> endpoint; // null: bound to no app yet
    std::optional<iusb::DirectoryAnswer> directory;
    iusb::InfoQueue queue;
    std::shared_ptr<iusb::FileAhead> ahead; // null: none
};

namespace iusb
{

// guarded() for calls on a connection: one that ran out of memory half-way may
// have promised bytes that are the caller's, so it goes as well.
template <typename Body>
int guardedOn(libiusb_afc *afc, Body body) noexcept
{
    try {
        return body();
    } catch (const std::exception &) {
        if (afc && afc->endpoint && afc->endpoint->connection)
            afcKill(*afc->endpoint->connection);
        return LIBIUSB_ERROR_NO_MEMORY;
    }
}

} // namespace iusb
