// What the pipe told so far, added up for people.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "helper/pipe_reader.h"

namespace helper
{

// Files and bytes since some moment.
struct Sum {
    uint64_t read_files = 0;
    uint64_t read_bytes = 0;
    uint64_t written_files = 0;
    uint64_t written_bytes = 0;

    bool empty() const { return read_files + written_files == 0; }
    void add(const Transfer &transfer);
    // "read 12 files (34.0 MB), written 1 file (2 B)"; "" when empty.
    std::string text() const;
};

class Transfers
{
  public:
    void take(const News &news, double time);
    // So many volumes can be there, and no more can be busy: the message that a
    // piece of work has ended may have been lost with its volume.
    void volumes(int most) { busy = std::min(busy, most); }

    bool isBusy() const { return busy > 0; }
    // The live line: "busy since 14:05:09 (3 s) · read 12 files (34.0 MB) · 5.1 MB/s".
    std::string line(double time);
    // What came since the last call.
    Sum takeLatest();

  private:
    double rate(double time); // bytes per second, lately

    Sum all;
    Sum latest;
    int busy = 0; // volumes that are; the messages do not say which
    double busy_since = 0;
    std::string busy_clock; // the same for people
    std::deque<std::pair<double, uint64_t>> recent;
};

} // namespace helper
