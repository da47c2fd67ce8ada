// Writing behind: a copy's writes go out while the next piece is read, and their
// confirmations are collected as they come.
#include <algorithm>
#include <cstring>
#include <utility>

#include "device/afc_file.h"

namespace iusb
{

// Most bytes that wait for their confirmation, and as much as memory is used.
constexpr size_t kMostBehind = 4 << 20;

static bool isUnsent(const AfcConnection &connection, const AfcBytes &bytes)
{
    return std::any_of(connection.out.begin(), connection.out.end(),
                       [&](const AfcConnection::Piece &piece) {
                           return piece.borrowed == bytes.data.get();
                       });
}

// Waits for the oldest confirmation.
static void settlePart(AfcFile &file)
{
    AfcConnection &connection = *file.connection;
    AfcBehind &behind = *file.behind;
    AfcBehind::Part &part = behind.parts.front();
    AfcReply reply;
    int code = afcWait(connection, part.packet, reply);
    // Answered before it was sent: nonsense, and its memory is about to go.
    if (connection.alive && isUnsent(connection, part.bytes)) {
        afcKill(connection);
        code = LIBIUSB_ERROR_LOST_CONNECTION;
    }
    if (behind.code == 0)
        behind.code = code;
    behind.unconfirmed -= part.bytes.size;
    connection.replies.recycle(std::move(part.bytes));
    behind.parts.pop_front();
}

void sendGathered(AfcFile &file)
{
    AfcBehind &behind = *file.behind;
    size_t size = behind.gathered.size;
    while (size > 0 && !behind.parts.empty() &&
           behind.unconfirmed + size > kMostBehind)
        settlePart(file);
    if (size == 0 || behind.code)
        return;
    behind.parts.push_back({0, std::exchange(behind.gathered, AfcBytes())});
    behind.unconfirmed += size;
    AfcBehind::Part &part = behind.parts.back();
    part.packet =
        afcSend(*file.connection, AfcOp::FileRefWrite,
                afcNumbers({file.handle}), 0, {part.bytes.data.get(), size});
    file.position += size;
    afcFlush(*file.connection);
}

int drainBehind(AfcFile &file)
{
    AfcBehind &behind = *file.behind;
    sendGathered(file);
    while (!behind.parts.empty())
        settlePart(file);
    noteChange(*file.owner->context);
    return behind.code;
}

// Nothing is on the way while the device's position is moved.
static int moveTo(AfcFile &file, uint64_t offset)
{
    int code = drainBehind(file);
    if (code == 0)
        code = file.behind->code = seekTo(file, offset);
    file.behind->next = offset;
    return code;
}

static void collectArrived(AfcFile &file)
{
    AfcBehind &behind = *file.behind;
    while (!behind.parts.empty() &&
           file.connection->replies.arrived(behind.parts.front().packet))
        settlePart(file);
}

int writeBehind(AfcFile &file, const char *buffer, uint32_t length,
                uint64_t offset, uint32_t &count)
{
    AfcBehind &behind = *file.behind;
    if (behind.next != offset && behind.code == 0)
        moveTo(file, offset);
    AfcBytes &gathered = behind.gathered;
    behind.told = behind.told && behind.code != 0;
    while (count < length && behind.code == 0) {
        if (!gathered.data) {
            gathered = file.connection->replies.obtain(kAfcChunk);
            gathered.size = 0;
        }
        size_t step =
            std::min<size_t>(kAfcChunk - gathered.size, length - count);
        memcpy(gathered.data.get() + gathered.size, buffer + count, step);
        gathered.size += step;
        behind.next += step;
        count += static_cast<uint32_t>(step);
        if (gathered.size == kAfcChunk)
            sendGathered(file);
    }
    collectArrived(file);
    return behind.code;
}

} // namespace iusb
