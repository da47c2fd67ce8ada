// Writing: one call's bytes go out in chunks back to back, and the call ends
// when every one of them is confirmed.
#include <algorithm>

#include "device/afc_file.h"

namespace iusb
{

// Most bytes of one call that wait for their confirmation.
constexpr size_t kMostUnconfirmed = 4 << 20;
constexpr uint64_t kSeekSet = 0;

// Brings the device's position to where the write begins. Waits for the answer:
// data behind a seek that failed would land somewhere else.
int seekTo(AfcFile &file, uint64_t offset)
{
    if (file.mode == LIBIUSB_MODE_APPEND ||
        (file.position_known && file.position == offset))
        return 0;
    file.position_known = false;
    int code = afcCall(*file.connection, AfcOp::FileRefSeek,
                       afcNumbers({file.handle, kSeekSet, offset}));
    file.position = offset;
    file.position_known = code == 0;
    return code;
}

struct Sending {
    struct Part {
        uint64_t packet;
        size_t size;
    };
    std::deque<Part> parts; // sent and not yet confirmed
    size_t unconfirmed = 0;
    uint32_t sent = 0;
};

static void sendParts(AfcFile &file, Sending &sending, const char *buffer,
                      uint32_t length)
{
    while (sending.sent < length) {
        size_t size = std::min<size_t>(length - sending.sent, kAfcChunk);
        if (sending.unconfirmed + size > kMostUnconfirmed)
            return;
        uint64_t packet = afcSend(*file.connection, AfcOp::FileRefWrite,
                                  afcNumbers({file.handle}), 0,
                                  {buffer + sending.sent, size});
        sending.parts.push_back({packet, size});
        sending.unconfirmed += size;
        sending.sent += static_cast<uint32_t>(size);
    }
}

static bool borrows(const AfcConnection &connection)
{
    return std::any_of(
        connection.out.begin(), connection.out.end(),
        [](const AfcConnection::Piece &piece) { return piece.borrowed; });
}

// Confirmed bytes count only up to the first failure. What was sent behind it
// is waited for all the same: the buffer is the caller's, and the connection
// stays in step.
static int sendAll(AfcFile &file, const char *buffer, uint32_t length,
                   uint32_t &count)
{
    Sending sending;
    int code = 0;
    while (count < length) {
        if (code == 0)
            sendParts(file, sending, buffer, length);
        if (sending.parts.empty())
            break;
        Sending::Part part = sending.parts.front();
        sending.parts.pop_front();
        sending.unconfirmed -= part.size;
        AfcReply reply;
        int part_code = afcWait(*file.connection, part.packet, reply);
        if (code == 0 && part_code == 0) {
            count += static_cast<uint32_t>(part.size);
        } else if (code == 0) {
            code = part_code;
        }
    }
    // Confirmed before it was sent: nonsense, and what is left to send is the
    // caller's memory.
    if (borrows(*file.connection)) {
        afcKill(*file.connection);
        code = LIBIUSB_ERROR_LOST_CONNECTION;
    }
    return code;
}

// A write makes a known size grow with it; anybody else's knowledge of the file
// is out of date.
static void noteWritten(AfcFile &file, bool size_known, uint64_t end)
{
    if (size_known && file.mode != LIBIUSB_MODE_APPEND) {
        file.size = std::max(file.size, end);
        file.size_changes = file.owner->context->changes;
    }
}

int writeAt(AfcFile &file, const char *buffer, uint32_t length, uint64_t offset,
            uint32_t &count)
{
    libiusb_context &context = *file.owner->context;
    dropChunks(file);
    int code = settleSize(file);
    if (code || length == 0)
        return code;
    bool size_known = file.size_changes == context.changes;
    code = seekTo(file, offset);
    if (code)
        return code;
    noteChange(context);
    code = sendAll(file, buffer, length, count);
    file.position = offset + count;
    file.position_known = code == 0;
    if (code == 0)
        noteWritten(file, size_known, offset + count);
    return code;
}

} // namespace iusb
