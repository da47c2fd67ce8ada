// A file that is about to be copied from: asked about and opened before anybody
// waits for it, and its first bytes on the way as soon as it is open.
#include <utility>

#include "device/afc_file.h"

namespace iusb
{

int prefetchFile(libiusb_afc *afc, const char *path)
{
    AfcConnection *connection = nullptr;
    int code = afcBegin(afc, Call::Other, connection);
    if (code || !path || !goodPath(path) || !afcRoomAhead(*connection))
        return code;
    auto ahead = std::make_shared<FileAhead>();
    ahead->owner = afc;
    ahead->path = path;
    ahead->connection = afc->endpoint->connection;
    ahead->info_packet =
        afcSend(*connection, AfcOp::GetFileInfo, afcPath(path));
    constexpr uint64_t read = 1;
    ahead->open_packet =
        afcSend(*connection, AfcOp::FileRefOpen, afcOpenRequest(read, path));
    if (ahead->open_packet == 0)
        return LIBIUSB_ERROR_LOST_CONNECTION;
    connection->files_open++; // keeps the connection from being taken for idle
    afc->ahead = std::move(ahead);
    afcFlush(*connection);
    return 0;
}

FileAhead *aheadFor(const libiusb_afc &afc, const char *path)
{
    FileAhead *ahead = afc.ahead.get();
    bool good = ahead && ahead->path == path && ahead->connection->alive &&
                ahead->connection == afc.endpoint->connection;
    return good ? ahead : nullptr;
}

void settleAhead(FileAhead &ahead)
{
    if (ahead.open_packet == 0)
        return;
    AfcReply reply;
    uint64_t packet = std::exchange(ahead.open_packet, 0);
    ahead.open_code = afcWait(*ahead.connection, packet, reply);
    if (ahead.open_code) {
        ahead.connection->files_open--;
        return;
    }
    ahead.file = std::make_unique<AfcFile>();
    ahead.file->owner = ahead.owner;
    ahead.file->connection = ahead.connection;
    ahead.file->handle = reply.value;
    ahead.file->mode = LIBIUSB_MODE_READ;
    ahead.file->steady = true;
}

void beginReading(FileAhead &ahead, uint64_t size)
{
    settleAhead(ahead);
    if (!ahead.file)
        return;
    ahead.file->size = size;
    ahead.file->size_changes = ahead.owner->context->changes;
    readFromStart(*ahead.file);
}

void dropAhead(libiusb_afc &afc)
{
    std::shared_ptr<FileAhead> ahead = std::exchange(afc.ahead, nullptr);
    if (!ahead || !ahead->connection->alive)
        return;
    ahead->connection->replies.abandon(ahead->info_packet);
    settleAhead(*ahead);
    if (!ahead->file || !ahead->connection->alive)
        return;
    closeAhead(*ahead->file);
    ahead->connection->replies.abandon(ahead->file->close_packet);
}

} // namespace iusb
