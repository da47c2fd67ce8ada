// One AFC connection: requests go out without waiting for each other, replies
// are collected when somebody needs them.
//
// Whoever waits also reads: the device stops taking requests while its replies
// are not read, so a sender that did not read would wait for ever. Between
// calls nobody reads; the socket's buffers hold what comes meanwhile.
//
// Once `alive` is false the connection stays of no use: every call on it gives
// LOST_CONNECTION and sends nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "device/afc_replies.h"
#include "device/device.h"
#include "device/stream.h"

namespace iusb
{

struct AfcConnection {
    // Bytes to be sent: our own, or (with `borrowed`) a caller's, which stay
    // until the request they belong to is answered.
    struct Piece {
        std::string own;
        const char *borrowed = nullptr;
        size_t length = 0; // of `borrowed`
    };

    Stream stream;
    AfcReplies replies;
    std::deque<Piece> out;
    size_t out_sent = 0; // of the first piece
    std::unique_ptr<char[]> staging;
    bool alive = true;
    int timeout_ms = 0;
    size_t window = 1;      // most requests in flight
    size_t files_open = 0;  // file handles of the device in use
    size_t chunk_bytes = 0; // asked for or held by read-ahead, all files
};

// Starts an AFC service on the device: the media file system, or with a bundle
// id the documents of that app.
int afcConnect(libiusb_device &device, const char *bundle_id,
               std::shared_ptr<AfcConnection> &out);

// Makes a connection over a stream that speaks AFC already.
std::shared_ptr<AfcConnection> afcOver(Stream stream, const Settings &settings);

// Takes in what has come, without waiting; false when the connection turns out
// to be dead, or was.
bool afcUsable(AfcConnection &connection);

// Sends a request and gives its packet number; 0 when the connection is dead.
// Waits only while the window is full. `bulk` stays the caller's.
uint64_t afcSend(AfcConnection &connection, AfcOp op, std::string_view fixed,
                 size_t reply_limit = 64 << 10, std::string_view bulk = {});

// True while one more request fits into the window and requests may be sent
// ahead at all.
bool afcRoomAhead(const AfcConnection &connection);

// Gives what is to be sent to the socket, as far as it takes it now.
void afcFlush(AfcConnection &connection);

// Waits for a reply and takes it; the result is its code, or LOST_CONNECTION.
int afcWait(AfcConnection &connection, uint64_t packet, AfcReply &reply);

// Sends a request and waits for its reply.
int afcCall(AfcConnection &connection, AfcOp op, std::string_view fixed,
            AfcReply &reply, size_t reply_limit = 64 << 10);
int afcCall(AfcConnection &connection, AfcOp op, std::string_view fixed);

// Drops the connection: nothing on it can be trusted any more.
void afcKill(AfcConnection &connection);

} // namespace iusb
