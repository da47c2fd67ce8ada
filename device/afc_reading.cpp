// Reading: served from chunks that are asked for in one flight, and ahead of the
// caller while it reads in order.
#include <algorithm>
#include <cstring>

#include "device/afc_file.h"
#include "device/afc_lists.h"

namespace iusb
{

// How far to read ahead: this much at first, doubled with every read that goes
// on, up to the most. Enough for 400 MB/s over several ms; little enough that a
// reader who stops early has not cost much.
constexpr size_t kFirstAhead = 512 << 10;
constexpr size_t kMostAhead = 2 << 20;
// All files of a connection together.
constexpr size_t kMostChunkBytes = 16 << 20;
// After this long without a read a file gives its share to others.
constexpr int64_t kIdleMs = 1000;
// What stays behind the reader, because the kernel asks slightly out of order.
constexpr uint64_t kKeptBehind = 512 << 10;
// Replies of 0 bytes before the end of a file that are asked for again.
constexpr int kZeroRepeats = 3;
constexpr uint64_t kSeekSet = 0, kSeekEnd = 2;

static void removeChunk(AfcFile &file, AfcChunk &chunk)
{
    AfcConnection &connection = *file.connection;
    connection.chunk_bytes -= chunk.want;
    if (chunk.settled) {
        connection.replies.recycle(std::move(chunk.bytes));
        return;
    }
    connection.replies.abandon(chunk.seek_packet);
    connection.replies.abandon(chunk.packet);
    // Nobody will see whether it was read in full.
    file.position_known = false;
}

void dropChunks(AfcFile &file)
{
    for (AfcChunk &chunk : file.chunks)
        removeChunk(file, chunk);
    file.chunks.clear();
}

static void dropBehind(AfcFile &file, uint64_t offset)
{
    while (file.chunks.size() > 1 && file.chunks.front().settled &&
           file.chunks.front().end() + kKeptBehind < offset) {
        removeChunk(file, file.chunks.front());
        file.chunks.pop_front();
    }
}

// Makes room in the common budget at the cost of a file that nobody reads at the
// moment. Between files that are all being read nothing is taken away: each
// would fetch for the other to throw away.
static void takeFromIdle(const AfcFile &file)
{
    for (auto &entry : file.owner->context->files) {
        AfcFile &other = *entry.second;
        if (&other != &file && other.connection == file.connection &&
            !other.chunks.empty() && file.used - other.used > kIdleMs) {
            dropChunks(other);
            return;
        }
    }
}

static void requestChunk(AfcFile &file, uint64_t offset, size_t want)
{
    AfcConnection &connection = *file.connection;
    AfcChunk chunk;
    chunk.offset = offset;
    chunk.want = want;
    if (!file.position_known || file.position != offset) {
        chunk.seek_packet =
            afcSend(connection, AfcOp::FileRefSeek,
                    afcNumbers({file.handle, kSeekSet, offset}));
    }
    chunk.packet = afcSend(connection, AfcOp::FileRefRead,
                           afcNumbers({file.handle, want}), want);
    file.position = offset + want;
    file.position_known = true;
    connection.chunk_bytes += want;
    file.chunks.push_back(std::move(chunk));
}

static bool isShort(const AfcChunk &chunk)
{
    return chunk.settled && chunk.bytes.size < chunk.want;
}

// The chunk that holds, or will hold, the byte at `offset`.
static AfcChunk *findChunk(AfcFile &file, uint64_t offset)
{
    for (AfcChunk &chunk : file.chunks) {
        if (offset >= chunk.offset && offset < chunk.end())
            return &chunk;
    }
    return nullptr;
}

// Asks for [offset, end), which no chunk holds yet.
static void requestRange(AfcFile &file, uint64_t offset, uint64_t end)
{
    if (!file.chunks.empty() &&
        (file.chunks.back().end() != offset || isShort(file.chunks.back())))
        dropChunks(file);
    while (offset < end) {
        size_t want = std::min<uint64_t>(end - offset, kAfcChunk);
        requestChunk(file, offset, want);
        offset += want;
    }
}

int settleSize(AfcFile &file)
{
    if (file.size_packet == 0)
        return 0;
    AfcReply reply;
    int code = afcWait(*file.connection, file.size_packet, reply);
    file.size_packet = 0;
    if (code == LIBIUSB_ERROR_LOST_CONNECTION)
        return code;
    auto info = code == 0 ? afcFileInfo(reply.text()) : std::nullopt;
    if (info && info->file_type == LIBIUSB_FILE_REGULAR) {
        file.size = info->size;
    } else {
        file.size_changes = 0;
    }
    return 0;
}

static bool sizeKnown(const AfcFile &file)
{
    return file.size_packet == 0 && file.size_changes != 0 &&
           (file.steady || file.size_changes == file.owner->context->changes);
}

// Keeps `ahead` bytes beyond `offset` in flight or at hand, never beyond the
// known end of the file.
static void requestAhead(AfcFile &file, uint64_t offset)
{
    AfcConnection &connection = *file.connection;
    if (connection.replies.arrived(file.size_packet))
        settleSize(file);
    while (file.ahead > 0 && afcRoomAhead(connection)) {
        uint64_t at = file.chunks.empty() ? offset : file.chunks.back().end();
        bool at_end = !file.chunks.empty() && isShort(file.chunks.back());
        if (at_end || at + kAfcChunk > offset + file.ahead ||
            (sizeKnown(file) && at >= file.size))
            return;
        if (connection.chunk_bytes + kAfcChunk > kMostChunkBytes)
            takeFromIdle(file);
        if (connection.chunk_bytes + kAfcChunk > kMostChunkBytes)
            return;
        requestChunk(file, at, kAfcChunk);
    }
}

void readFromStart(AfcFile &file)
{
    file.streak = 1;
    file.ahead = kFirstAhead;
    requestAhead(file, 0);
    afcFlush(*file.connection);
}

// Waits for a chunk's reply. After a failure nothing that was asked for behind
// it is where it should be.
static int settleChunk(AfcFile &file, AfcChunk &chunk)
{
    if (chunk.settled)
        return 0;
    AfcReply reply;
    int code = 0;
    if (chunk.seek_packet)
        code = afcWait(*file.connection, chunk.seek_packet, reply);
    chunk.seek_packet = 0;
    if (code == 0)
        code = afcWait(*file.connection, chunk.packet, reply);
    if (code) {
        dropChunks(file);
        file.position_known = false;
        return code;
    }
    chunk.settled = true;
    chunk.bytes = std::move(reply.bytes);
    if (isShort(chunk)) {
        // The device stands where the reply ended, unless it went on from there.
        file.position_known =
            file.position_known && &chunk == &file.chunks.back();
        file.position = chunk.end();
    }
    return 0;
}

// Before the bytes of a chunk are believed, those asked for in front of it have
// to be there in full: they say that it begins where it should. With `in_place`
// false everything was dropped, to be asked for again.
static int settleInFront(AfcFile &file, uint64_t at, bool &in_place)
{
    in_place = true;
    for (AfcChunk &chunk : file.chunks) {
        if (chunk.offset + chunk.want > at)
            break;
        int code = settleChunk(file, chunk);
        if (code == LIBIUSB_ERROR_LOST_CONNECTION)
            return code;
        in_place = code == 0 && !isShort(chunk);
        if (in_place)
            continue;
        if (code == 0)
            dropChunks(file);
        break;
    }
    return 0;
}

// ---------------------------------------------------------------------------
// The end of the file

// Asks the device where the file ends, by its handle: the path may be another
// file's by now.
static int askSize(AfcFile &file)
{
    AfcConnection &connection = *file.connection;
    uint64_t seek = afcSend(connection, AfcOp::FileRefSeek,
                            afcNumbers({file.handle, kSeekEnd, 0}));
    uint64_t tell =
        afcSend(connection, AfcOp::FileRefTell, afcNumbers({file.handle}));
    file.position_known = false;
    AfcReply moved, told;
    int seek_code = afcWait(connection, seek, moved);
    int tell_code = afcWait(connection, tell, told);
    if (seek_code || tell_code)
        return seek_code ? seek_code : tell_code;
    file.size = told.value;
    file.size_changes = file.owner->context->changes;
    file.position = file.size;
    file.position_known = true;
    return 0;
}

// Decides whether a reply that ended early at `end` did so because the file
// ends there.
static int checkEnd(AfcFile &file, uint64_t end, bool &at_end)
{
    int code = settleSize(file);
    if (code == 0 && !(sizeKnown(file) && end >= file.size))
        code = askSize(file);
    at_end = code == 0 && end >= file.size;
    return code;
}

// A chunk came shorter than asked: what was asked for behind it has wrong
// offsets, unless the file ends here.
static int handleShort(AfcFile &file, uint64_t end, bool &at_end)
{
    bool last = file.chunks.back().end() == end;
    dropChunks(file);
    file.position = end;
    file.position_known = last;
    return checkEnd(file, end, at_end);
}

// ---------------------------------------------------------------------------

static void noteAccess(AfcFile &file, uint64_t offset)
{
    uint64_t changes = file.owner->context->changes;
    bool follows = offset == file.next || findChunk(file, offset);
    if (file.changes != changes && !file.steady) {
        dropChunks(file);
        file.changes = changes;
        file.streak = 0;
        file.ahead = 0;
    }
    file.used = nowMs();
    if (!follows) {
        dropChunks(file);
        file.streak = 1;
        file.ahead = 0;
        return;
    }
    file.streak++;
    if (file.streak >= 2)
        file.ahead = std::clamp(file.ahead * 2, kFirstAhead, kMostAhead);
}

// Copies from the chunk at hand what the caller wants of it.
static uint32_t copyFrom(const AfcChunk &chunk, uint64_t at, char *buffer,
                         uint32_t room)
{
    if (at >= chunk.end())
        return 0;
    auto size =
        static_cast<uint32_t>(std::min<uint64_t>(chunk.end() - at, room));
    memcpy(buffer, chunk.bytes.data.get() + (at - chunk.offset), size);
    return size;
}

int readAt(AfcFile &file, char *buffer, uint32_t length, uint64_t offset,
           uint32_t &count)
{
    noteAccess(file, offset);
    bool at_end = false;
    int zeros = 0;
    while (count < length && !at_end) {
        uint64_t at = offset + count;
        if (!findChunk(file, at))
            requestRange(file, at, offset + length);
        requestAhead(file, offset + length);
        afcFlush(*file.connection);
        bool in_place = false;
        int code = settleInFront(file, at, in_place);
        if (code == 0 && !in_place)
            continue;
        AfcChunk *chunk = code == 0 ? findChunk(file, at) : nullptr;
        if (chunk)
            code = settleChunk(file, *chunk);
        if (code || !chunk)
            return code ? code : LIBIUSB_ERROR_AFC_IO;
        uint32_t copied = copyFrom(*chunk, at, buffer + count, length - count);
        count += copied;
        if (copied > 0) {
            zeros = 0;
        } else if (zeros++ >= kZeroRepeats) {
            return LIBIUSB_ERROR_AFC_IO;
        }
        if (isShort(*chunk) && count < length && offset + count >= chunk->end())
            code = handleShort(file, chunk->end(), at_end);
        if (code)
            return code;
    }
    file.next = offset + count;
    dropBehind(file, file.next);
    afcUsable(*file.connection);
    return 0;
}

} // namespace iusb
