// What comes through the named pipe, from whoever writes to it.
//
// Input: one byte, the length of the pieces in which the rest is read (0: all at
// once), then the bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "fuzz/target.h"
#include "helper/pipe_reader.h"

using helper::News;

namespace
{

// The bytes that a piece of news stood for, each of which is counted once.
size_t LengthOf(const News &news)
{
    switch (news.kind) {
    case News::BusyOn:
        return 5;
    case News::BusyOff:
        return 6;
    case News::Transfers:
        Require(!news.transfers.empty() && news.transfers.size() <= 30);
        for (const helper::Transfer &transfer : news.transfers) {
            Require(transfer.kind == helper::Transfer::Read ||
                    transfer.kind == helper::Transfer::Written);
            Require(transfer.extension.size() <= 9);
        }
        return 18 + 22 * news.transfers.size();
    case News::Nonsense:
        Require(news.bytes > 0);
        return news.bytes;
    }
    return 0;
}

size_t LengthOf(const std::vector<News> &all)
{
    size_t length = 0;
    for (const News &news : all) {
        length += LengthOf(news);
    }
    return length;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1,
                                 size - 1);
    const size_t piece = data[0] == 0 ? bytes.size() : data[0];
    helper::PipeReader reader;
    size_t length = 0;
    for (size_t at = 0; at < bytes.size(); at += piece) {
        length += LengthOf(reader.feed(bytes.substr(at, piece), 0));
        Require(length <= std::min(at + piece, bytes.size()));
    }
    // What waits for its rest is given up piece by piece, and nothing is lost
    // or told twice.
    double time = 0;
    while (reader.waiting()) {
        const size_t before = length;
        length += LengthOf(reader.expire(time += 2));
        Require(length > before);
    }
    Require(length == bytes.size());
    Require(reader.expire(time + 2).empty());
    // It is as good as new.
    Require(reader.feed("-neoff", time) ==
            std::vector<News>{{News::BusyOff, {}, 0}});
    return 0;
}
