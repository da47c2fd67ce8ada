// The emulated cable of one device: latency, bandwidth, and the switches that
// hold traffic back or cut it.
//
// Times are computed, not measured: each direction keeps the moment until which
// it is occupied, and a transfer gets its begin and end from that. Waking up a
// little late therefore neither lowers the rate nor lets it drift.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace sim
{

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Nanoseconds = std::chrono::nanoseconds;

// One direction of a cable, shared by all connections of the device.
class Lane
{
  public:
    // 0 bytes per second: no limit. Set before use.
    void setRate(double bytesPerSecond);

    // How long `bytes` occupy the lane.
    Nanoseconds cost(size_t bytes) const;

    // Occupies the lane for `bytes` that are ready at `ready`; returns the
    // moment at which their transfer begins.
    Time reserve(size_t bytes, Time ready);

    // The piece in which a long transfer shares the lane with others: about
    // 250 µs worth of bytes, 16 to 64 KiB.
    size_t quantum() const { return m_quantum; }

  private:
    double m_nsPerByte = 0;
    size_t m_quantum = size_t{64} * 1024;
    std::mutex m_mutex;
    Time m_free{};
};

// What all connections of one device share.
struct Cable {
    Nanoseconds delay{0};  // one way: half of the round trip
    bool emulated = false; // latency or bandwidth is set
    Lane toDevice;
    Lane toHost;

    // While set, nothing that the device answers leaves it.
    std::atomic<bool> stalled{false};
    // Counted up when a stall ends: lets go what was held on single connections.
    std::atomic<uint64_t> stallEpoch{0};
    // Bytes, in both directions together, until the cable is pulled out; below
    // 0 when nobody asked for that.
    std::atomic<int64_t> bytesLeft{-1};

    void configure(Nanoseconds roundTrip, double bytesPerSecond);
};

} // namespace sim
