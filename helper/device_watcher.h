// A thread that looks again and again which devices are attached. A device that
// is silent holds up its looking, and nothing else.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "helper/descriptor.h"
#include "helper/devices.h"

namespace helper
{

struct Attached {
    bool daemon = true; // usbmuxd answers
    std::vector<Device> devices;
};

class DeviceWatcher
{
  public:
    DeviceWatcher();
    // Ends the thread, after at most the time that a silent device takes.
    ~DeviceWatcher();
    DeviceWatcher(const DeviceWatcher &) = delete;
    DeviceWatcher &operator=(const DeviceWatcher &) = delete;

    // Readable when something has changed since the last `take`.
    int descriptor() const { return changed.get(); }
    Attached take();

  private:
    void run();
    Attached look(const std::vector<Device> &known);

    Descriptor changed;
    Descriptor ending;
    std::mutex lock;
    Attached latest; // under the lock
    Library library; // the thread's own
    std::thread thread;
};

} // namespace helper
