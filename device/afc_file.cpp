// Opening and closing files, and the rules that every call on a handle obeys.
#include "device/afc_file.h"

#include <atomic>
#include <utility>

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

// Takes a file into the register of open ones.
static libiusb_file addFile(libiusb_afc *afc, std::unique_ptr<AfcFile> file)
{
    libiusb_file number = newNumber();
    file->changes = afc->context->changes;
    afc->context->files[number] = std::move(file);
    return number;
}

// Opens, and for a file that can be read asks for its size in the same flight:
// with it the end of a file is recognised without another round trip.
static int openOnDevice(libiusb_afc *afc, AfcConnection &connection,
                        const char *path, int mode, libiusb_file *out)
{
    bool can_read = mode == LIBIUSB_MODE_READ || mode == LIBIUSB_MODE_UPDATE;
    if (mode != LIBIUSB_MODE_READ)
        noteChange(*afc->context);
    auto file = std::make_unique<AfcFile>();
    uint64_t packet = afcSend(connection, AfcOp::FileRefOpen,
                              afcOpenRequest(wireMode(mode), path));
    if (can_read && afcRoomAhead(connection)) {
        file->size_packet =
            afcSend(connection, AfcOp::GetFileInfo, afcPath(path));
    }
    AfcReply reply;
    int code = afcWait(connection, packet, reply);
    if (code) {
        connection.replies.abandon(file->size_packet);
        return code;
    }
    file->owner = afc;
    file->connection = afc->endpoint->connection;
    file->handle = reply.value;
    file->mode = mode;
    if (file->size_packet)
        file->size_changes = afc->context->changes;
    connection.files_open++;
    *out = addFile(afc, std::move(file));
    return 0;
}

// Takes the file that was opened ahead.
static int openAhead(libiusb_afc *afc, FileAhead &ahead, libiusb_file *out)
{
    settleAhead(ahead);
    int code = ahead.open_code;
    if (ahead.file) {
        ahead.file->size_packet = std::exchange(ahead.info_packet, 0);
        if (ahead.file->size_packet)
            ahead.file->size_changes = afc->context->changes;
        *out = addFile(afc, std::move(ahead.file));
    }
    dropAhead(*afc);
    return code;
}

static int openFile(libiusb_afc *afc, const char *path, int mode,
                    libiusb_file *out)
{
    AfcConnection *connection = nullptr;
    int code = afcBegin(afc, Call::Open, connection);
    if (code)
        return code;
    FileAhead *ahead = aheadFor(*afc, path);
    if (ahead && mode == LIBIUSB_MODE_READ)
        return openAhead(afc, *ahead, out);
    if (ahead)
        dropAhead(*afc);
    return openOnDevice(afc, *connection, path, mode, out);
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

void closeAhead(AfcFile &file)
{
    AfcConnection &connection = *file.connection;
    if (file.closing || !connection.alive)
        return;
    file.closing = true;
    if (file.behind)
        sendGathered(file);
    dropChunks(file);
    connection.replies.abandon(file.size_packet);
    connection.files_open--;
    file.close_packet =
        afcSend(connection, AfcOp::FileRefClose, afcNumbers({file.handle}));
}

// Closes; the memory of what was written behind is the file's, so its
// confirmations come first.
static int finishFile(AfcFile &file)
{
    closeAhead(file);
    int code = 0;
    if (file.behind)
        code = drainBehind(file);
    if (file.behind && file.behind->told)
        code = 0;
    AfcReply reply;
    int closed = afcWait(*file.connection, file.close_packet, reply);
    return code ? code : closed;
}

void closeFilesOf(libiusb_afc &afc)
{
    auto &files = afc.context->files;
    std::vector<std::unique_ptr<AfcFile>> closing;
    closing.reserve(files.size());
    for (auto at = files.begin(); at != files.end();) {
        if (at->second->owner != &afc) {
            ++at;
            continue;
        }
        closeAhead(*at->second);
        closing.push_back(std::move(at->second));
        at = files.erase(at);
    }
    for (const auto &file : closing)
        finishFile(*file);
}

} // namespace iusb

using iusb::afcCall;
using iusb::AfcFile;
using iusb::afcNumbers;
using iusb::AfcOp;
using iusb::closeAhead;
using iusb::drainBehind;
using iusb::dropChunks;
using iusb::finishFile;
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
        if (code == 0 && (open->closing || open->behind))
            code = LIBIUSB_ERROR_INVALID_ARG;
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
        if (code == 0 && open->closing)
            code = LIBIUSB_ERROR_INVALID_ARG;
        if (code)
            return code;
        auto bytes = static_cast<const char *>(buffer);
        return open->behind ? writeBehind(*open, bytes, length, offset, *count)
                            : writeAt(*open, bytes, length, offset, *count);
    });
}

int libiusb_afc_file_set_size(libiusb_afc *afc, libiusb_file file,
                              uint64_t size)
{
    return guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        if (code == 0 && (open->closing || open->behind))
            code = LIBIUSB_ERROR_INVALID_ARG;
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
        return code ? code : finishFile(*owned);
    });
}

int libiusb_afc_file_write_behind(libiusb_afc *afc, libiusb_file file)
{
    return guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        if (code == 0 && (open->closing || open->mode == LIBIUSB_MODE_READ))
            code = LIBIUSB_ERROR_INVALID_ARG;
        if (code == 0 && !open->behind) {
            dropChunks(*open);
            open->behind = std::make_unique<iusb::AfcBehind>();
            open->behind->next =
                open->position_known ? open->position : iusb::kNowhere;
        }
        return code;
    });
}

int libiusb_afc_file_drain(libiusb_afc *afc, libiusb_file file)
{
    return guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        if (code || !open->behind)
            return code;
        open->behind->told = true;
        return drainBehind(*open);
    });
}

void libiusb_afc_file_close_ahead(libiusb_afc *afc, libiusb_file file)
{
    guardedOn(afc, [&] {
        AfcFile *open = nullptr;
        int code = useFile(afc, file, open);
        if (code == 0) {
            closeAhead(*open);
            iusb::afcFlush(*open->connection);
        }
        return code;
    });
}

void libiusb_afc_prefetch_file(libiusb_afc *afc, const char *path)
{
    if (!afc || !afc->endpoint)
        return;
    guardedOn(afc, [&] { return iusb::prefetchFile(afc, path); });
}
