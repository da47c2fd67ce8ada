#include "helper/pipe_reader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace helper
{

namespace
{

constexpr std::string_view ON = "-neon";
constexpr std::string_view OFF = "-neoff";
constexpr std::string_view BATCH = "-ncdat";
constexpr size_t HEADER = 18;
constexpr size_t COUNT_AT = 14;
constexpr uint32_t MOST_RECORDS = 30;
constexpr size_t RECORD = 22;
constexpr size_t SIZE_AT = 4;
constexpr size_t EXTENSION_AT = 12;
constexpr size_t EXTENSION = 10;
constexpr double PATIENCE = 1;   // seconds; a message is written in one call
constexpr int DEEPEST = 3;       // messages inside one batch
constexpr size_t LONGEST = 4096; // several batches inside each other

enum class State { Whole, Short, Bad };

// ---------------------------------------------------------------------------
// One batch without anything in it

struct Batch {
    State state = State::Bad;
    size_t length = 0;  // of the sound part
    size_t bad_end = 0; // where the part that is not sound ends
    std::vector<Transfer> transfers;
};

template <typename Number>
Number numberAt(std::string_view text, size_t at)
{
    Number value = 0;
    memcpy(&value, text.data() + at, sizeof(value));
    return value;
}

bool readRecord(std::string_view bytes, Transfer &transfer)
{
    const std::string_view field = bytes.substr(EXTENSION_AT, EXTENSION);
    const size_t end = field.find('\0');
    transfer.kind = numberAt<uint32_t>(bytes, 0);
    transfer.size = numberAt<uint64_t>(bytes, SIZE_AT);
    transfer.extension = field.substr(0, end);
    return (transfer.kind == Transfer::Read ||
            transfer.kind == Transfer::Written) &&
           end != std::string_view::npos &&
           field.find_first_not_of('\0', end) == std::string_view::npos;
}

// The header as far as it is there; `count` once it is whole.
State readHeader(std::string_view text, uint32_t &count)
{
    const std::string_view start = text.substr(0, COUNT_AT);
    const std::string expected = std::string(BATCH) + std::string(8, '\0');
    if (!std::string_view(expected).starts_with(start)) {
        return State::Bad;
    }
    if (text.size() < HEADER) {
        return State::Short;
    }
    count = numberAt<uint32_t>(text, COUNT_AT);
    return count >= 1 && count <= MOST_RECORDS ? State::Whole : State::Bad;
}

Batch readBatch(std::string_view text)
{
    Batch batch;
    uint32_t count = 0;
    batch.state = readHeader(text, count);
    batch.bad_end = HEADER;
    if (batch.state != State::Whole) {
        return batch;
    }
    batch.length = HEADER;
    for (uint32_t i = 0; i < count; ++i) {
        if (text.size() < batch.length + RECORD) {
            batch.state = State::Short;
            return batch;
        }
        Transfer transfer;
        if (!readRecord(text.substr(batch.length, RECORD), transfer)) {
            batch.state = State::Bad;
            batch.bad_end = batch.length + RECORD;
            return batch;
        }
        batch.transfers.push_back(transfer);
        batch.length += RECORD;
    }
    return batch;
}

// A batch that only another message follows. One inside the last record's
// extension can look like a longer extension: what is left over tells.
Batch readWholeBatch(std::string_view text)
{
    Batch batch = readBatch(text);
    if (batch.state == State::Whole && text.size() > batch.length &&
        text[batch.length] != '-') {
        batch.state = State::Bad;
        batch.bad_end = batch.length;
    }
    return batch;
}

// ---------------------------------------------------------------------------
// Messages inside a batch

struct Found {
    State state = State::Bad;
    size_t length = 0;
    std::vector<News> news;
};

News transfersNews(std::vector<Transfer> transfers)
{
    return {News::Transfers, std::move(transfers), 0};
}

// A whole message, or the beginning of one, that begins `text`.
Found plainMessage(std::string_view text)
{
    for (const auto &[mark, kind] :
         {std::pair(ON, News::BusyOn), std::pair(OFF, News::BusyOff)}) {
        if (text.starts_with(mark)) {
            return {State::Whole, mark.size(), {{kind, {}, 0}}};
        }
    }
    const Batch batch = readBatch(text);
    if (batch.state == State::Whole) {
        return {State::Whole, batch.length, {transfersNews(batch.transfers)}};
    }
    const bool beginning = ON.starts_with(text) || OFF.starts_with(text) ||
                           batch.state == State::Short;
    return {beginning ? State::Short : State::Bad, 0, {}};
}

// A batch, with up to `depth` messages standing in it. Where it stops making
// sense, or in the record before, is where one must have come between.
Found batchWithOthers(const std::string &text, int depth)
{
    const Batch batch = readWholeBatch(text);
    if (batch.state == State::Whole) {
        return {State::Whole, batch.length, {transfersNews(batch.transfers)}};
    }
    if (batch.state == State::Short || depth == 0) {
        return {batch.state, 0, {}};
    }
    Found result;
    const size_t begin =
        batch.length > 2 * RECORD ? batch.length - 2 * RECORD : 1;
    const size_t end = std::min(batch.bad_end, text.size());
    for (size_t at = text.find('-', begin); at < end;
         at = text.find('-', at + 1)) {
        Found inner = plainMessage(std::string_view(text).substr(at));
        if (inner.state == State::Whole) {
            Found rest = batchWithOthers(
                text.substr(0, at) + text.substr(at + inner.length), depth - 1);
            if (rest.state == State::Whole) {
                rest.length += inner.length;
                rest.news.insert(rest.news.begin(), inner.news.begin(),
                                 inner.news.end());
                return rest;
            }
            inner.state = rest.state;
        }
        if (inner.state == State::Short) {
            result.state = State::Short;
        }
    }
    return result;
}

bool mayBegin(std::string_view text)
{
    static constexpr std::array MARKS = {ON, OFF, BATCH};
    return std::any_of(MARKS.begin(), MARKS.end(), [&](std::string_view mark) {
        return text.starts_with(mark) || mark.starts_with(text);
    });
}

} // namespace

// Throws away what no message begins with.
bool PipeReader::dropNonsense(std::vector<News> &news, size_t from)
{
    size_t at = from;
    while (at < buffer.size() &&
           !mayBegin(std::string_view(buffer).substr(at))) {
        ++at;
    }
    buffer.erase(0, at);
    if (at > 0) {
        news.push_back({News::Nonsense, {}, at});
    }
    return at > 0;
}

bool PipeReader::takeBatch(std::vector<News> &news, bool give_up)
{
    const Found found = batchWithOthers(buffer, DEEPEST);
    if (found.state == State::Whole) {
        news.insert(news.end(), found.news.begin(), found.news.end());
        buffer.erase(0, found.length);
        return true;
    }
    if (found.state == State::Short && !give_up && buffer.size() < LONGEST) {
        return false;
    }
    // What came of it is true all the same.
    Batch part = readBatch(buffer);
    if (!part.transfers.empty()) {
        buffer.erase(0, part.length);
        news.push_back(transfersNews(std::move(part.transfers)));
        dropNonsense(news, 0);
        return true;
    }
    return dropNonsense(news, 1);
}

bool PipeReader::takeNext(std::vector<News> &news, bool give_up)
{
    if (buffer.empty() || dropNonsense(news, 0)) {
        return !buffer.empty();
    }
    if (buffer.starts_with(BATCH)) {
        return takeBatch(news, give_up);
    }
    const Found found = plainMessage(buffer);
    if (found.state == State::Whole) {
        news.insert(news.end(), found.news.begin(), found.news.end());
        buffer.erase(0, found.length);
        return true;
    }
    return give_up && dropNonsense(news, 1);
}

std::vector<News> PipeReader::feed(std::string_view data, double time)
{
    std::vector<News> news;
    if (buffer.empty()) {
        waiting_since = time;
    }
    buffer += data;
    while (takeNext(news, false)) {
        waiting_since = time;
    }
    return news;
}

std::vector<News> PipeReader::expire(double time)
{
    std::vector<News> news;
    if (buffer.empty() || time - waiting_since < PATIENCE) {
        return news;
    }
    takeNext(news, true);
    while (takeNext(news, false)) {}
    waiting_since = time;
    return news;
}

} // namespace helper
