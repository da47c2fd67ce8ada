// Listings: the names of a folder, and information about its entries asked for
// ahead of the caller.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "device/afc_file.h"
#include "device/afc_lists.h"

namespace iusb
{

constexpr size_t kMaxListing = 64U << 20;
// How long an answer that was not asked for stays good.
constexpr int64_t kFreshMs = 2000;
// How far the caller may skip entries.
constexpr size_t kMostSkipped = 64;

// ---------------------------------------------------------------------------
// The queue of information requests

static bool queueGood(const libiusb_afc &afc)
{
    const InfoQueue &queue = afc.queue;
    return !queue.entries.empty() && queue.connection &&
           queue.connection == afc.endpoint->connection &&
           queue.changes == afc.context->changes &&
           nowMs() - queue.used <= kFreshMs;
}

static std::string fullPath(const InfoQueue &queue, const std::string &name)
{
    return queue.base.empty() ? name : queue.base + "/" + name;
}

static bool isPathOf(const InfoQueue &queue, const std::string &name,
                     std::string_view path)
{
    if (queue.base.empty())
        return path == name;
    size_t base = queue.base.size();
    return path.size() == base + 1 + name.size() && path[base] == '/' &&
           path.compare(0, base, queue.base) == 0 &&
           path.compare(base + 1, name.size(), name) == 0;
}

// Sends what fits into the window. Waits until half of it is free, so that
// requests go out many at a time.
static void refill(InfoQueue &queue)
{
    AfcConnection &connection = *queue.connection;
    if (connection.replies.outstanding() > connection.window / 2)
        return;
    while (queue.sent < queue.entries.size() && afcRoomAhead(connection) &&
           queue.sent < connection.window) {
        InfoQueue::Entry &entry = queue.entries[queue.sent];
        entry.packet = afcSend(connection, AfcOp::GetFileInfo,
                               afcPath(fullPath(queue, entry.name)));
        if (entry.packet == 0)
            return;
        queue.sent++;
    }
    afcFlush(connection);
}

static void startQueue(libiusb_afc &afc, std::string base,
                       std::deque<InfoQueue::Entry> entries)
{
    dropQueue(afc.queue);
    if (afc.endpoint->connection->window <= 1)
        return;
    afc.queue.base = std::move(base);
    afc.queue.entries = std::move(entries);
    afc.queue.connection = afc.endpoint->connection;
    afc.queue.changes = afc.context->changes;
    afc.queue.used = nowMs();
    refill(afc.queue);
}

// Takes the path off the queue, and gives the packet number under which it was
// asked for ahead; 0 when it was not. Entries that the caller passed over are
// given up.
static uint64_t takeFromQueue(InfoQueue &queue, std::string_view path)
{
    size_t last = std::min(queue.entries.size(), kMostSkipped);
    size_t at = 0;
    while (at < last && !isPathOf(queue, queue.entries[at].name, path))
        at++;
    if (at >= last)
        return 0;
    uint64_t packet = queue.entries[at].packet;
    for (size_t i = 0; i < std::min(at, queue.sent); i++)
        queue.connection->replies.abandon(queue.entries[i].packet);
    queue.entries.erase(queue.entries.begin(),
                        queue.entries.begin() + static_cast<ptrdiff_t>(at) + 1);
    queue.sent -= std::min(at + 1, queue.sent);
    queue.used = nowMs();
    return packet;
}

static int fileInfo(libiusb_afc *afc, const char *path,
                    libiusb_afc_file_info &info)
{
    AfcConnection *connection = nullptr;
    int code = afcBegin(afc, Call::Info, connection);
    if (code)
        return code;
    uint64_t packet = 0;
    FileAhead *ahead = aheadFor(*afc, path);
    if (ahead && ahead->info_packet) {
        packet = std::exchange(ahead->info_packet, 0);
    } else if (queueGood(*afc)) {
        packet = takeFromQueue(afc->queue, path);
        refill(afc->queue);
    } else {
        dropQueue(afc->queue);
    }
    if (packet == 0)
        packet = afcSend(*connection, AfcOp::GetFileInfo, afcPath(path));
    AfcReply reply;
    code = afcWait(*connection, packet, reply);
    if (code)
        return code;
    auto found = afcFileInfo(reply.text());
    if (!found)
        return LIBIUSB_ERROR_PROTOCOL;
    info = *found;
    if (ahead)
        beginReading(*ahead, info.size);
    connection->replies.recycle(std::move(reply.bytes));
    return 0;
}

// ---------------------------------------------------------------------------
// Names

// One block of memory: the pointers, then the names.
static char **newNameArray(const std::vector<std::string_view> &names)
{
    size_t size = (names.size() + 1) * sizeof(char *);
    for (std::string_view name : names)
        size += name.size() + 1;
    char **list = static_cast<char **>(malloc(size));
    if (!list)
        return nullptr;
    char *text = reinterpret_cast<char *>(list + names.size() + 1);
    for (size_t i = 0; i < names.size(); i++) {
        list[i] = text;
        memcpy(text, names[i].data(), names[i].size());
        text += names[i].size();
        *text++ = '\0';
    }
    list[names.size()] = nullptr;
    return list;
}

static bool answerGood(const libiusb_afc &afc, const char *path)
{
    return afc.directory && afc.directory->path == path &&
           afc.directory->changes == afc.context->changes &&
           nowMs() - afc.directory->time <= kFreshMs;
}

// Makes sure that afc->directory answers for the path.
static int askDirectory(libiusb_afc *afc, const char *path)
{
    AfcConnection *connection = nullptr;
    int code = afcBegin(afc, Call::Directory, connection);
    if (code)
        return code;
    if (answerGood(*afc, path))
        return 0;
    afc->directory.reset();
    AfcReply reply;
    code =
        afcCall(*connection, AfcOp::ReadDir, afcPath(path), reply, kMaxListing);
    if (code)
        return code;
    afc->directory = DirectoryAnswer{path, std::move(reply.bytes),
                                     afc->context->changes, nowMs()};
    return 0;
}

static std::string withoutSlashes(std::string path)
{
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path;
}

static int readDirectory(libiusb_afc *afc, const char *path, char ***list,
                         uint32_t &count)
{
    int code = askDirectory(afc, path);
    if (code)
        return code;
    const AfcBytes &bytes = afc->directory->bytes;
    std::vector<std::string_view> names =
        afcNames({bytes.data.get(), bytes.size});
    if (list) {
        *list = newNameArray(names);
        if (!*list)
            return LIBIUSB_ERROR_NO_MEMORY;
        std::deque<InfoQueue::Entry> entries;
        for (std::string_view name : names) {
            if (name[0] != '.')
                entries.push_back({std::string(name), 0});
        }
        startQueue(*afc, withoutSlashes(path), std::move(entries));
        afc->directory.reset();
    }
    count = static_cast<uint32_t>(names.size());
    return 0;
}

} // namespace iusb

using iusb::goodPath;
using iusb::guardedOn;
using iusb::InfoQueue;

int libiusb_afc_file_get_info(libiusb_afc *afc, const char *path,
                              libiusb_afc_file_info *info)
{
    if (!info)
        return LIBIUSB_ERROR_INVALID_ARG;
    *info = libiusb_afc_file_info{};
    if (!afc || !goodPath(path))
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(afc, [&] { return iusb::fileInfo(afc, path, *info); });
}

int libiusb_afc_prefetch_info(libiusb_afc *afc, const char *const *paths,
                              size_t count)
{
    if (!afc || (!paths && count > 0))
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(afc, [&] {
        iusb::AfcConnection *connection = nullptr;
        int code = iusb::afcBegin(afc, iusb::Call::Other, connection);
        if (code)
            return code;
        std::deque<InfoQueue::Entry> entries;
        for (size_t i = 0; i < count; i++) {
            if (goodPath(paths[i]))
                entries.push_back({paths[i], 0});
        }
        iusb::startQueue(*afc, std::string(), std::move(entries));
        return connection->alive
                   ? 0
                   : static_cast<int>(LIBIUSB_ERROR_LOST_CONNECTION);
    });
}

int libiusb_afc_file_read_directory(libiusb_afc *afc, const char *path,
                                    char ***list, uint32_t *count)
{
    if (list)
        *list = nullptr;
    if (!count)
        return LIBIUSB_ERROR_INVALID_ARG;
    *count = 0;
    if (!afc || !goodPath(path))
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(
        afc, [&] { return iusb::readDirectory(afc, path, list, *count); });
}

void libiusb_misc_free_strings_array(char **list)
{
    free(list);
}
