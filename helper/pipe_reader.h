// What comes through the named pipe, made into news. Knows nothing of files, so
// that it can be tried with any bytes.
//
// On the pipe run, without anything between them: the texts "-neon" and
// "-neoff" (a long piece of work begins and ends), and batches of transfers: 18
// bytes ("-ncdat", eight zero bytes, the count n as a 32-bit number) and n
// records of 22 bytes (kind, size, extension). Where a pipe takes large writes
// in pieces, one message may stand in the middle of a batch; a writer may die in
// the middle of one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace helper
{

// A file that was read through or written.
struct Transfer {
    enum Kind : uint32_t { Read = 1, Written = 2 };
    uint32_t kind = 0;
    uint64_t size = 0;
    std::string extension;

    bool operator==(const Transfer &) const = default;
};

struct News {
    enum Kind { BusyOn, BusyOff, Transfers, Nonsense };
    Kind kind = Nonsense;
    std::vector<Transfer> transfers; // Transfers
    size_t bytes = 0;                // Nonsense: how many were thrown away

    bool operator==(const News &) const = default;
};

class PipeReader
{
  public:
    // Takes what was read, in pieces of any length; `time` in seconds on any
    // clock that goes forward. The news that are complete by now.
    std::vector<News> feed(std::string_view data, double time);

    // To be called now and then: gives up a message whose rest has not come
    // within a second, and finds what stands behind it.
    std::vector<News> expire(double time);

    // Whether the beginning of a message waits for its rest.
    bool waiting() const { return !buffer.empty(); }

  private:
    // Takes the next message off the buffer; false when more must come first.
    bool takeNext(std::vector<News> &news, bool give_up);
    bool takeBatch(std::vector<News> &news, bool give_up);
    bool dropNonsense(std::vector<News> &news, size_t from);

    std::string buffer;
    double waiting_since = 0;
};

} // namespace helper
