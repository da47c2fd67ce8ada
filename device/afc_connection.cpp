#include "device/afc_connection.h"

#include <algorithm>
#include <array>

#include "device/libiusb.h"

namespace iusb
{

constexpr size_t kStaging = 128 << 10;
constexpr int kMaxParts = 16;
// A device that sends single bytes makes progress without end; a whole reply
// must come within this many times the limit of one wait.
constexpr int kReplyPatience = 6;
// Of pieces that are appended to rather than started anew.
constexpr size_t kPieceSize = 32 << 10;

std::shared_ptr<AfcConnection> afcOver(Stream stream, const Settings &settings)
{
    auto connection = std::make_shared<AfcConnection>();
    connection->stream = std::move(stream);
    connection->staging = std::make_unique_for_overwrite<char[]>(kStaging);
    connection->timeout_ms = settings.timeout_ms;
    connection->window = settings.afc_window;
    return connection;
}

void afcKill(AfcConnection &connection)
{
    connection.alive = false;
    connection.stream = Stream();
    connection.out.clear();
    connection.replies = AfcReplies();
}

// ---------------------------------------------------------------------------
// Moving bytes. All return the number of bytes moved, or a negative code after
// which the connection is dead.

static int gatherParts(const AfcConnection &connection,
                       std::array<iovec, kMaxParts> &parts)
{
    int count = 0;
    size_t skip = connection.out_sent;
    for (const AfcConnection::Piece &piece : connection.out) {
        if (count + 2 > kMaxParts)
            break;
        std::string_view spans[] = {piece.own, {piece.borrowed, piece.length}};
        for (std::string_view span : spans) {
            size_t cut = std::min(skip, span.size());
            skip -= cut;
            span.remove_prefix(cut);
            if (!span.empty()) {
                parts[static_cast<size_t>(count++)] = {
                    const_cast<char *>(span.data()), span.size()};
            }
        }
    }
    return count;
}

static void dropSent(AfcConnection &connection, size_t sent)
{
    connection.out_sent += sent;
    while (!connection.out.empty()) {
        const AfcConnection::Piece &piece = connection.out.front();
        size_t size = piece.own.size() + piece.length;
        if (connection.out_sent < size)
            break;
        connection.out_sent -= size;
        connection.out.pop_front();
    }
}

static ssize_t sendSome(AfcConnection &connection)
{
    ssize_t total = 0;
    while (!connection.out.empty()) {
        std::array<iovec, kMaxParts> parts;
        int count = gatherParts(connection, parts);
        ssize_t sent = streamSend(connection.stream, parts.data(), count);
        if (sent < 0)
            return sent;
        if (sent == 0)
            break;
        dropSent(connection, static_cast<size_t>(sent));
        total += sent;
    }
    return total;
}

// One read from the socket: into the payload under way if that is large, and
// what is beyond it into the staging buffer.
static ssize_t receiveOnce(AfcConnection &connection)
{
    iovec direct = connection.replies.direct();
    iovec parts[2] = {direct, {connection.staging.get(), kStaging}};
    bool use_direct = direct.iov_len > 0;
    ssize_t got = streamReceive(connection.stream, parts + !use_direct,
                                use_direct ? 2 : 1);
    if (got <= 0)
        return got;
    size_t placed = std::min(direct.iov_len, static_cast<size_t>(got));
    size_t staged = static_cast<size_t>(got) - placed;
    bool in_step = connection.replies.placed(placed) &&
                   connection.replies.feed(connection.staging.get(), staged);
    return in_step ? got : ssize_t{LIBIUSB_ERROR_LOST_CONNECTION};
}

// Both directions once; true when anything moved.
static bool moveSome(AfcConnection &connection)
{
    ssize_t sent = sendSome(connection);
    ssize_t got = sent < 0 ? sent : receiveOnce(connection);
    if (got < 0) {
        afcKill(connection);
        return false;
    }
    return sent > 0 || got > 0;
}

// Moves bytes until `done` says so. The limit of a wait begins anew with every
// byte that moves.
template <typename Done>
static int moveUntil(AfcConnection &connection, Done done)
{
    Deadline silence = deadlineIn(connection.timeout_ms);
    Deadline patience = deadlineIn(connection.timeout_ms * kReplyPatience);
    size_t outstanding = connection.replies.outstanding();
    while (connection.alive && !done()) {
        if (moveSome(connection)) {
            silence = deadlineIn(connection.timeout_ms);
            if (connection.replies.outstanding() != outstanding)
                patience = deadlineIn(connection.timeout_ms * kReplyPatience);
            outstanding = connection.replies.outstanding();
        } else if (connection.alive && (done() || expired(silence))) {
            break;
        } else if (connection.alive) {
            streamWait(connection.stream, !connection.out.empty(), silence);
        }
        if (expired(patience))
            break;
    }
    if (connection.alive && done())
        return 0;
    if (connection.alive)
        afcKill(connection);
    return LIBIUSB_ERROR_LOST_CONNECTION;
}

// ---------------------------------------------------------------------------

bool afcUsable(AfcConnection &connection)
{
    // More than the socket's buffers hold is the read-ahead of a running
    // transfer: enough is known then.
    constexpr int most_rounds = 16;
    for (int i = 0; connection.alive && i < most_rounds; i++) {
        if (!moveSome(connection))
            break;
    }
    return connection.alive;
}

static std::string &lastOwnPiece(AfcConnection &connection)
{
    bool fits = !connection.out.empty() && !connection.out.back().borrowed &&
                connection.out.back().own.size() < kPieceSize;
    if (!fits)
        connection.out.emplace_back();
    return connection.out.back().own;
}

uint64_t afcSend(AfcConnection &connection, AfcOp op, std::string_view fixed,
                 size_t reply_limit, std::string_view bulk)
{
    auto has_room = [&] {
        return connection.replies.outstanding() < connection.window;
    };
    if (!connection.alive || moveUntil(connection, has_room))
        return 0;
    uint64_t packet = connection.replies.expect(op, reply_limit);
    afcAppendRequest(lastOwnPiece(connection), op, packet, fixed, bulk.size());
    if (!bulk.empty()) {
        connection.out.back().borrowed = bulk.data();
        connection.out.back().length = bulk.size();
    }
    return packet;
}

bool afcRoomAhead(const AfcConnection &connection)
{
    return connection.alive && connection.window > 1 &&
           connection.replies.outstanding() < connection.window;
}

void afcFlush(AfcConnection &connection)
{
    if (connection.alive && sendSome(connection) < 0)
        afcKill(connection);
}

int afcWait(AfcConnection &connection, uint64_t packet, AfcReply &reply)
{
    reply = AfcReply();
    auto arrived = [&] {
        return connection.replies.arrived(packet);
    };
    if (packet == 0 || !connection.alive || moveUntil(connection, arrived))
        return reply.code = LIBIUSB_ERROR_LOST_CONNECTION;
    reply = connection.replies.take(packet);
    return reply.code;
}

int afcCall(AfcConnection &connection, AfcOp op, std::string_view fixed,
            AfcReply &reply, size_t reply_limit)
{
    return afcWait(connection, afcSend(connection, op, fixed, reply_limit),
                   reply);
}

int afcCall(AfcConnection &connection, AfcOp op, std::string_view fixed)
{
    AfcReply reply;
    return afcCall(connection, op, fixed, reply);
}

} // namespace iusb
