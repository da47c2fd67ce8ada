// What the simulator counts: tests and benchmarks judge a client by it.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace sim
{

class Statistics
{
  public:
    // Counts one request. `group` is "usbmux", "lockdown", "afc",
    // "house_arrest", "installation_proxy", "notification_proxy", or
    // "connections" (by service).
    void count(const std::string &group, const std::string &name);

    // Everything on one line of JSON: the groups (an unused one is empty),
    // then the totals and gauges.
    std::string json() const;

    // Forgets what was counted; gauges tell the present state and stay.
    void reset();

    // Totals of payload bytes of AFC reads and writes.
    std::atomic<uint64_t> bytesRead{0};
    std::atomic<uint64_t> bytesWritten{0};

    // Gauges.
    std::atomic<int64_t> openFiles{0};         // AFC file handles
    std::atomic<int64_t> houseArrest{0};       // connections of that service
    std::atomic<int64_t> openConnections{0};   // clients of the usbmux socket
    std::atomic<int64_t> deviceConnections{0}; // those connected to a port

  private:
    mutable std::mutex m_mutex;
    std::map<std::string, std::map<std::string, uint64_t>> m_counts;
};

// Keeps a gauge one higher for as long as it lives.
class GaugeHold
{
  public:
    explicit GaugeHold(std::atomic<int64_t> &gauge) : m_gauge(gauge)
    {
        m_gauge++;
    }
    ~GaugeHold() { m_gauge--; }
    GaugeHold(const GaugeHold &) = delete;
    GaugeHold &operator=(const GaugeHold &) = delete;

  private:
    std::atomic<int64_t> &m_gauge;
};

} // namespace sim
