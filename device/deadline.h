// Time limits of waits, on the monotonic clock.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace iusb
{

// Milliseconds of the monotonic clock.
inline int64_t nowMs()
{
    using std::chrono::milliseconds;
    auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<milliseconds>(now).count();
}

// The moment at which a wait is given up.
struct Deadline {
    int64_t at = 0;
};

inline Deadline deadlineIn(int ms)
{
    return Deadline{nowMs() + ms};
}

inline bool expired(Deadline deadline)
{
    return nowMs() >= deadline.at;
}

// What is left, in the form poll(2) wants it: never negative.
inline int leftMs(Deadline deadline)
{
    int64_t left = deadline.at - nowMs();
    return static_cast<int>(std::clamp<int64_t>(left, 0, 3'600'000));
}

// The nearer of a deadline and `ms` from now.
inline Deadline sooner(Deadline deadline, int ms)
{
    return Deadline{std::min(deadline.at, nowMs() + ms)};
}

} // namespace iusb
