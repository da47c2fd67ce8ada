#include "simdevice/link.h"

#include <algorithm>

namespace sim
{

void Lane::setRate(double bytesPerSecond)
{
    if (bytesPerSecond <= 0) {
        return;
    }
    m_nsPerByte = 1e9 / bytesPerSecond;
    const double quarterMillisecond = bytesPerSecond / 4000;
    m_quantum = static_cast<size_t>(
        std::clamp(quarterMillisecond, 16.0 * 1024, 64.0 * 1024));
}

Nanoseconds Lane::cost(size_t bytes) const
{
    return Nanoseconds(
        static_cast<int64_t>(static_cast<double>(bytes) * m_nsPerByte));
}

Time Lane::reserve(size_t bytes, Time ready)
{
    if (m_nsPerByte <= 0) {
        return ready;
    }
    const std::lock_guard lock(m_mutex);
    const Time begin = std::max(m_free, ready);
    m_free = begin + cost(bytes);
    return begin;
}

void Cable::configure(Nanoseconds roundTrip, double bytesPerSecond)
{
    delay = roundTrip / 2;
    emulated = roundTrip.count() > 0 || bytesPerSecond > 0;
    toDevice.setRate(bytesPerSecond);
    toHost.setRate(bytesPerSecond);
}

} // namespace sim
