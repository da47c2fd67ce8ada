// The progress bar of a copy, one line.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

namespace helper
{

class Progress
{
  public:
    explicit Progress(uint64_t whole) : total(whole) {}

    // The line for `done` bytes at `time`, `resumed` of which were there before
    // (they say nothing about the speed): bar, bytes, rate over the last
    // seconds, time left, and what is in work.
    std::string line(uint64_t done, uint64_t resumed, double time,
                     const std::string &what);

  private:
    double rate(uint64_t moved, double time);

    uint64_t total;
    std::deque<std::pair<double, uint64_t>> recent;
};

} // namespace helper
