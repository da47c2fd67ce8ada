#include "device/afc_replies.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "device/errors.h"

namespace iusb
{

// Large enough for the value and whatever a device may add to it.
constexpr size_t kMaxStatusPayload = 64 << 10;
// From this size on a payload is worth receiving in place.
constexpr size_t kDirectSize = 16 << 10;
constexpr size_t kMaxSpare = 32;

uint64_t AfcReplies::expect(AfcOp op, size_t limit)
{
    slots_.push_back(Slot{op, State::Waiting, limit, {}});
    outstanding_++;
    return first_ + slots_.size() - 1;
}

AfcReplies::Slot *AfcReplies::find(uint64_t packet)
{
    bool known = packet >= first_ && packet - first_ < slots_.size();
    return known ? &slots_[packet - first_] : nullptr;
}

const AfcReplies::Slot *AfcReplies::find(uint64_t packet) const
{
    return const_cast<AfcReplies *>(this)->find(packet);
}

bool AfcReplies::arrived(uint64_t packet) const
{
    const Slot *slot = find(packet);
    return slot && slot->state == State::Arrived;
}

void AfcReplies::forget(Slot &slot)
{
    slot.state = State::Gone;
    recycle(std::move(slot.reply.bytes));
    slot.reply = AfcReply();
    while (!slots_.empty() && slots_.front().state == State::Gone) {
        slots_.pop_front();
        first_++;
    }
}

AfcReply AfcReplies::take(uint64_t packet)
{
    Slot *slot = find(packet);
    if (!slot || slot->state != State::Arrived)
        return AfcReply();
    AfcReply reply = std::move(slot->reply);
    slot->reply = AfcReply();
    forget(*slot);
    return reply;
}

void AfcReplies::abandon(uint64_t packet)
{
    Slot *slot = find(packet);
    if (!slot)
        return;
    if (slot->state == State::Arrived) {
        forget(*slot);
    } else if (slot->state == State::Waiting) {
        slot->state = State::Abandoned;
    }
}

void AfcReplies::recycle(AfcBytes bytes)
{
    if (bytes.capacity == kAfcChunk && spare_.size() < kMaxSpare)
        spare_.push_back(std::move(bytes.data));
}

AfcBytes AfcReplies::obtain(size_t size)
{
    AfcBytes bytes;
    bytes.size = size;
    // Chunks go round: fresh memory of that size costs its page faults.
    bytes.capacity =
        size > kAfcChunk / 4 && size <= kAfcChunk ? kAfcChunk : size;
    if (bytes.capacity == kAfcChunk && !spare_.empty()) {
        bytes.data = std::move(spare_.back());
        spare_.pop_back();
    } else if (size > 0) {
        bytes.data = std::make_unique_for_overwrite<char[]>(bytes.capacity);
    }
    return bytes;
}

// ---------------------------------------------------------------------------
// The stream

// Which replies a request can have beside a refusal.
static AfcOp answerOf(AfcOp op)
{
    switch (op) {
    case AfcOp::ReadDir:
    case AfcOp::GetFileInfo:
    case AfcOp::GetDeviceInfo:
    case AfcOp::FileRefRead:
        return AfcOp::Data;
    case AfcOp::FileRefOpen:
        return AfcOp::FileRefOpenResult;
    case AfcOp::FileRefTell:
        return AfcOp::FileRefTellResult;
    default:
        return AfcOp::Status;
    }
}

bool AfcReplies::beginReply()
{
    auto header = afcParseHeader(head_);
    Slot *slot = header ? find(header->packet) : nullptr;
    if (!slot ||
        (slot->state != State::Waiting && slot->state != State::Abandoned))
        return false;
    uint64_t size = header->payload();
    bool is_data = header->op == AfcOp::Data;
    if (header->op != AfcOp::Status && header->op != answerOf(slot->op))
        return false;
    if (is_data ? size > slot->limit
                : size < sizeof(uint64_t) || size > kMaxStatusPayload)
        return false;
    header_ = *header;
    in_payload_ = true;
    received_ = 0;
    discard_ = is_data && slot->state == State::Abandoned;
    payload_ = discard_ ? AfcBytes() : obtain(size);
    return size > 0 || endReply();
}

bool AfcReplies::endReply()
{
    Slot *slot = find(header_.packet);
    in_payload_ = false;
    head_filled_ = 0;
    outstanding_--;
    AfcReply &reply = slot->reply;
    if (header_.op == AfcOp::Data) {
        reply.bytes = std::move(payload_);
    } else {
        uint64_t value = getLe64(payload_.data.get());
        bool is_status = header_.op == AfcOp::Status;
        // "Success" answers nothing where data or a handle was asked for, and
        // no file handle is 0.
        if (value == 0 && is_status && answerOf(slot->op) != AfcOp::Status)
            return false;
        if (value == 0 && header_.op == AfcOp::FileRefOpenResult)
            return false;
        reply.code = is_status ? codeOfAfcStatus(value) : 0;
        reply.value = is_status ? 0 : value;
    }
    payload_ = AfcBytes();
    if (slot->state == State::Abandoned) {
        forget(*slot);
    } else {
        slot->state = State::Arrived;
    }
    return true;
}

// `count` bytes more of the payload are in place.
bool AfcReplies::advance(size_t count)
{
    received_ += count;
    return received_ < header_.payload() || endReply();
}

iovec AfcReplies::direct() const
{
    if (!in_payload_ || discard_)
        return {nullptr, 0};
    size_t left = header_.payload() - received_;
    if (left < kDirectSize)
        return {nullptr, 0};
    return {payload_.data.get() + received_, left};
}

bool AfcReplies::placed(size_t count)
{
    return count == 0 || advance(count);
}

bool AfcReplies::feed(const char *bytes, size_t count)
{
    while (count > 0) {
        size_t step = 0;
        bool in_step = true;
        if (in_payload_) {
            step = std::min<uint64_t>(count, header_.payload() - received_);
            if (!discard_)
                memcpy(payload_.data.get() + received_, bytes, step);
            in_step = advance(step);
        } else {
            step = std::min(count, kAfcHeaderSize - head_filled_);
            memcpy(head_ + head_filled_, bytes, step);
            head_filled_ += step;
            in_step = head_filled_ < kAfcHeaderSize || beginReply();
        }
        if (!in_step)
            return false;
        bytes += step;
        count -= step;
    }
    return true;
}

} // namespace iusb
