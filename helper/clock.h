// Time as waits and rates need it.
#pragma once

#include <ctime>

namespace helper
{

// Seconds on a clock that only goes forward.
inline double now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) +
           static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace helper
