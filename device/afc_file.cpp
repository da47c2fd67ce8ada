// Opening and closing files, and the rules that every call on a handle obeys.
#include "device/afc_file.h"

#include <atomic>

namespace iusb
{

// What LIBIUSB_MODE_* is on the wire; 0 for what is no mode.
static uint64_t wireMode(int mode)
{
    constexpr uint64_t read = 1, read_write_create = 2, write_truncate = 3,
                       append = 5;
    switch (mode) {
    case LIBIUSB_MODE_READ:
        return read;
    case LIBIUSB_MODE_WRITE:
        return write_truncate;
    case LIBIUSB_MODE_APPEND:
        return append;
    case LIBIUSB_MODE_UPDATE:
        return read_write_create;
    default:
        return 0;
    }
}

// Handles are unique in the process, so that a handle of another context is
// noticed as well.
static libiusb_file newNumber()
{
    static std::atomic<libiusb_file> last{0};
    return ++last;
}

// Opens, and for a file that can be read asks for its size in the same flight:
// with it the end of a file is recognised without another round trip.
static int openFile(libiusb_afc *afc, const char *path, int mode,
                    libiusb_file *out)
{
    AfcConnection *connection = nullptr;
    int code = afcBegin(afc, Call::Other, connection);
    if (code)
        return code;
    bool can_read = mode == LIBIUSB_MODE_READ || mode == LIBIUSB_MODE_UPDATE;
    if (mode != LIBIUSB_MODE_READ)
        noteChange(*afc->context);
    auto file = std::make_unique<AfcFile>();
    uint64_t packet = afcSend(*connection, AfcOp::FileRefOpen,
                              afcOpenRequest(wireMode(mode), path));
    if (can_read && afcRoomAhead(*connection)) {
        file->size_packet =
            afcSend(*connection, AfcOp::GetFileInfo, afcPath(path));
    }
    AfcReply reply;
    code = afcWait(*connection, packet, reply);
    if (code) {
        connection->replies.abandon(file->size_packet);
        return code;
    }
    file->owner = afc;
    file->connection = afc->endpoint->connection;
    file->handle = reply.value;
    file->mode = mode;
    file->changes = afc->context->changes;
    if (file->size_packet)
        file->size_changes = afc->context->changes;
    connection->files_open++;
    libiusb_file number = newNumber();
    afc->context->files[number] = std::move(file);
    *out = number;
    return 0;
}

// Finds an open file for a call through `afc`. INVALID_ARG when it was opened
// through another handle; LOST_CONNECTION when its connection is gone.
static int useFile(libiusb_afc *afc, libiusb_file number, AfcFile *&file)
{
    if (!afc || !afc->endpoint)
        return LIBIUSB_ERROR_INVALID_ARG;
    auto found = afc->context->files.find(number);
    if (found == afc->context->files.end() || found->second->owner != afc)
        return LIBIUSB_ERROR_INVALID_ARG;
    file = found->second.get();
    afc->directory.reset();
    dropQueue(afc->queue);
    afc->endpoint->used = nowMs();
    return afcUsable(*file->connection) ? 0 : LIBIUSB_ERROR_LOST_CONNECTION;
}

// Sends the close of a file whose handle is given up; 0 when there is nothing
// to wait for.
static uint64_t sendClose(AfcFile &file)
{
    AfcConnection &connection = *file.connection;
    if (!connection.alive)
        return 0;
    dropChunks(file);
    connection.replies.abandon(file.size_packet);
    connection.files_open--;
    return afcSend(connection, AfcOp::FileRefClose, afcNumbers({file.handle}));
}

void closeFilesOf(libiusb_afc &afc)
{
    auto &files = afc.context->files;
    std::vector<std::pair<std::shared_ptr<AfcConnection>, uint64_t>> closing;
    closing.reserve(files.size());
    for (auto at = files.begin(); at != files.end();) {
        if (at->second->owner != &afc) {
            ++at;
            continue;
        }
        uint64_t packet = sendClose(*at->second);
        if (packet)
            closing.emplace_back(at->second->connection, packet);
        at = files.erase(at);
    }
    AfcReply reply;
    for (auto &[connection, packet] : closing)
        afcWait(*connection, packet, reply);
}

} // namespace iusb

using iusb::afcCall;
using iusb::AfcFile;
using iusb::afcNumbers;
using iusb::AfcOp;
using iusb::goodPath;
using iusb::guardedOn;
using iusb::useFile;
using iusb::wireMode;

int libiusb_afc_file_open(libiusb_afc *afc, const char *path, int mode,
                          libiusb_file *file)
{
    if (!file)
        return LIBIUSB_ERROR_INVALID_ARG;
    *file = 0;
    if (!afc || !goodPath(path) || wireMode(mode) == 0)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(afc,
                     [&] { return iusb::openFile(afc, path, mode, file); });
}

int libiusb_afc_file_read(libiusb_afc *afc, libiusb_file file, void *buffer,
                          uint32_t length, uint64_t offset, uint32_t *count)
{
    if (!count)
        return LIBIUSB_ERROR_INVALID_ARG;
    *count = 0;
    if (!buffer && length > 0)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        if (code == 0 && length > 0) {
            code = readAt(*open, static_cast<char *>(buffer), length, offset,
                          *count);
        }
        if (code)
            *count = 0;
        return code;
    });
}

int libiusb_afc_file_write(libiusb_afc *afc, libiusb_file file,
                           const void *buffer, uint32_t length, uint64_t offset,
                           uint32_t *count)
{
    if (!count)
        return LIBIUSB_ERROR_INVALID_ARG;
    *count = 0;
    if (!buffer && length > 0)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        return code ? code
                    : writeAt(*open, static_cast<const char *>(buffer), length,
                              offset, *count);
    });
}

int libiusb_afc_file_set_size(libiusb_afc *afc, libiusb_file file,
                              uint64_t size)
{
    return guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        if (code)
            return code;
        iusb::noteChange(*afc->context);
        return afcCall(*open->connection, AfcOp::FileRefSetFileSize,
                       afcNumbers({open->handle, size}));
    });
}

int libiusb_afc_file_close(libiusb_afc *afc, libiusb_file file)
{
    return guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        if (!open)
            return code;
        std::unique_ptr<AfcFile> owned = std::move(afc->context->files[file]);
        afc->context->files.erase(file);
        if (code)
            return code;
        iusb::AfcReply reply;
        return afcWait(*owned->connection, sendClose(*owned), reply);
    });
}
