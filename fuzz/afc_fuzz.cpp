// Replies on an AFC connection: a script of expected requests and a byte stream
// from outside. Whatever comes, every answer stays within what its request
// allowed, and what is read out of it is sane.
//
// Input: one byte n, n bytes that each describe a request, then the stream,
// which is fed in pieces whose sizes the first bytes of the stream choose.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include "device/afc_lists.h"
#include "device/afc_replies.h"
#include "fuzz/target.h"

namespace
{

using iusb::AfcOp;
using iusb::AfcReplies;

constexpr AfcOp KINDS[] = {
    AfcOp::ReadDir,
    AfcOp::GetFileInfo,
    AfcOp::GetDeviceInfo,
    AfcOp::FileRefOpen,
    AfcOp::FileRefRead,
    AfcOp::FileRefWrite,
    AfcOp::FileRefSeek,
    AfcOp::FileRefClose,
    AfcOp::RemovePath,
    AfcOp::FileRefTell,
    AfcOp::MakeDir,
    AfcOp::RenamePath,
    AfcOp::FileRefSetFileSize,
};

struct Request {
    uint64_t packet;
    size_t limit;
    bool abandoned;
};

std::vector<Request> Expect(AfcReplies *replies, const uint8_t *script,
                            size_t count)
{
    std::vector<Request> requests;
    for (size_t i = 0; i < count; ++i) {
        const AfcOp kind = KINDS[script[i] % std::size(KINDS)];
        const size_t limit = size_t{script[i]} * 16;
        Request request{replies->expect(kind, limit), limit, script[i] > 240};
        if (request.abandoned) {
            replies->abandon(request.packet);
        }
        requests.push_back(request);
    }
    return requests;
}

// Feeds the stream in pieces, half of them through the direct buffer.
bool Feed(AfcReplies *replies, const char *bytes, size_t size, size_t piece)
{
    while (size > 0) {
        size_t count = std::min(piece, size);
        const iovec direct = replies->direct();
        bool good = false;
        if (direct.iov_len > 0) {
            count = std::min(count, direct.iov_len);
            std::copy_n(bytes, count, static_cast<char *>(direct.iov_base));
            good = replies->placed(count);
        } else {
            good = replies->feed(bytes, count);
        }
        if (!good) {
            return false;
        }
        bytes += count;
        size -= count;
        piece = piece * 7 % 1021 + 1;
    }
    return true;
}

void Look(const iusb::AfcReply &reply, const Request &request)
{
    Require(reply.text().size() <= request.limit);
    for (const std::string_view name : iusb::afcNames(reply.text())) {
        Require(!name.empty() && name != "." && name != ".." &&
                name.find('/') == std::string_view::npos &&
                name.find('\0') == std::string_view::npos);
    }
    (void)iusb::afcFileInfo(reply.text());
    (void)iusb::afcDeviceInfo(reply.text());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2 || size < 2U + data[0]) {
        return 0;
    }
    AfcReplies replies;
    const std::vector<Request> requests = Expect(&replies, data + 1, data[0]);
    const size_t begin = 1U + data[0];
    const size_t piece = data[begin] + size_t{1};
    Feed(&replies, reinterpret_cast<const char *>(data) + begin + 1,
         size - begin - 1, piece);
    Require(replies.outstanding() <= requests.size());
    for (const Request &request : requests) {
        if (!request.abandoned && replies.arrived(request.packet)) {
            Look(replies.take(request.packet), request);
        }
    }
    return 0;
}
