// The requests of one AFC connection that wait for their replies, and the
// parser that turns the byte stream from the device into those replies.
//
// Knows nothing of sockets: bytes from outside go in, answered requests come
// out. Replies are matched by packet number alone, so that any order is fine. A
// number that nobody waits for, a reply of a kind the request cannot have, or a
// length beyond what was asked for means that the stream is out of step:
// nothing on it can be trusted any more.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string_view>
#include <vector>

#include "device/afc_packet.h"

namespace iusb
{

// The chunk in which files are read and written: large enough that requests
// cost nothing, small enough that a reply is soon there.
constexpr size_t kAfcChunk = 256 << 10;

// Bytes of a reply. Not cleared when made.
struct AfcBytes {
    std::unique_ptr<char[]> data;
    size_t capacity = 0;
    size_t size = 0;
};

// One request's answer.
struct AfcReply {
    int code = 0;       // 0, or LIBIUSB_ERROR_* for a status
    uint64_t value = 0; // a file handle or a position
    AfcBytes bytes;     // what a Data reply carries

    std::string_view text() const { return {bytes.data.get(), bytes.size}; }
};

class AfcReplies
{
  public:
    // Registers a request and gives it a packet number. Its Data reply may
    // carry at most `limit` bytes.
    uint64_t expect(AfcOp op, size_t limit);

    // Requests that have no reply yet, abandoned ones included.
    size_t outstanding() const { return outstanding_; }

    // True when the reply is there (and not yet taken).
    bool arrived(uint64_t packet) const;

    // Takes a reply that arrived.
    AfcReply take(uint64_t packet);

    // Gives up a request: its reply is dropped now or when it comes.
    void abandon(uint64_t packet);

    // Memory for a reply, or for what is to be sent.
    AfcBytes obtain(size_t size);

    // Gives a reply's memory back for the next one.
    void recycle(AfcBytes bytes);

    // Where the next bytes of a large reply may be put directly, so that they
    // need not be copied: empty when there is no such reply under way.
    // `placed` says how many were put there.
    iovec direct() const;
    bool placed(size_t count);

    // Bytes from the stream, in any pieces. False when the stream is out of
    // step; nothing more may be fed then.
    bool feed(const char *bytes, size_t count);

  private:
    enum class State : uint8_t { Waiting, Abandoned, Arrived, Gone };
    struct Slot {
        AfcOp op{};
        State state = State::Waiting;
        size_t limit = 0;
        AfcReply reply;
    };

    Slot *find(uint64_t packet);
    const Slot *find(uint64_t packet) const;
    void forget(Slot &slot);
    bool beginReply();
    bool advance(size_t count);
    bool endReply();

    std::deque<Slot> slots_; // packet numbers first_, first_ + 1, ...
    uint64_t first_ = 1;
    size_t outstanding_ = 0;
    std::vector<std::unique_ptr<char[]>> spare_; // of kAfcChunk bytes each

    // The reply under way.
    char head_[kAfcHeaderSize] = {};
    size_t head_filled_ = 0;
    AfcHeader header_;
    bool in_payload_ = false;
    bool discard_ = false;
    uint64_t received_ = 0; // of its payload
    AfcBytes payload_;
};

} // namespace iusb
