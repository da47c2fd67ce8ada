// The simulated world: devices, the usbmux daemon that knows them, and what the
// connections share.
//
// Each client of the usbmux socket has a thread of its own, which speaks usbmux
// until the client connects to a device port and then serves that port.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simdevice/device_folder.h"
#include "simdevice/faults.h"
#include "simdevice/pairing.h"
#include "simdevice/statistics.h"
#include "simdevice/wire.h"

namespace sim
{

enum class TlsUse { off, session, all };

struct RunOptions {
    std::string socketPath;
    std::string controlPath; // empty: none
    std::vector<std::string> folders;
    uint64_t roundTripUs = 0;
    double megabytesPerSecond = 0; // 1 MB = 1,000,000 bytes; 0: no limit
    TlsUse tls = TlsUse::session;
    uint32_t maxFiles = 200;     // AFC handles of one connection
    uint32_t maxHouseArrest = 5; // connections of one device
    bool wifi = false;           // each device is in the list twice
    bool unplugged = false;      // devices come when they are plugged
    bool verbose = false;
};

// The free space of a device: what it had when it was made, less what came to
// it since.
class Space
{
  public:
    void set(uint64_t freeBytes);
    uint64_t free() const;
    // Takes from or gives back to the free space. False, and nothing is taken,
    // if there is not enough.
    bool grow(uint64_t oldSize, uint64_t newSize, uint64_t blockSize);

  private:
    mutable std::mutex m_mutex;
    uint64_t m_free = 0;
};

// A service that lockdown has started and nobody has connected to yet.
struct StartedService {
    std::string name;
    std::string hostId; // of the session, for TLS
    bool tls = false;
    Time started{};
};

struct Device {
    // Fixed after start.
    int index = 0;
    std::string folder;
    Identity identity;

    Cable cable;
    Space space;
    Pairing pairing;

    // Guarded by Simulator::mutex.
    uint32_t usbId = 0;  // the daemon's number; 0: unplugged
    uint32_t wifiId = 0; // of the Wi-Fi entry; 0: none
    uint32_t locationId = 0;
    Trust trust;
    std::map<uint16_t, StartedService> ports;
    uint32_t houseArrest = 0; // connections alive
    std::list<std::weak_ptr<Wire>> usbWires;
    std::list<std::weak_ptr<Wire>> wifiWires;
};

// Clients that asked to hear of devices.
struct Listener {
    int fd = -1;
};

// Raw names that ReadDir answers carry in addition.
struct ExtraNames {
    bool on = false;
    std::vector<std::string> names;
};

// Threads that end by themselves.
class Workers
{
  public:
    void start(std::function<void()> work);
    void joinAll();

  private:
    struct Worker {
        std::thread thread;
        std::atomic<bool> done{false};
    };
    std::mutex m_mutex;
    std::list<Worker> m_workers;
};

struct Simulator {
    RunOptions options;
    std::vector<std::unique_ptr<Device>> devices; // fixed after start
    Statistics statistics;
    Faults faults;
    Workers workers;
    std::atomic<int64_t> clockOffset{0}; // seconds, of the devices' clocks
    int quitFd = -1;                     // an eventfd: written to end the run

    std::mutex mutex;
    uint32_t nextDeviceId = 1;
    uint16_t nextPort = 49152;
    std::list<Listener> listeners;
    std::vector<int> clients; // descriptors of clients that speak usbmux
    ExtraNames extraNames;
    std::string usbmuxNonsense = "off";
    std::string lockdownNonsense = "off";
    bool quitting = false;
};

// The daemon's own identity, which it hands to everybody (ReadBUID).
extern const char *const kSystemBuid;

// Loads the device folders into `simulator`. Empty, or what is wrong.
std::string loadDevices(Simulator &simulator);

// Puts a device on the bus, with a new number (and a new location unless 0).
// False if it is there already.
bool plugDevice(Simulator &simulator, Device &device, uint32_t locationId);

// Takes it off: its USB connections end, listeners hear of it.
bool unplugDevice(Simulator &simulator, Device &device);

// Ends every connection of everybody.
void cutEverything(Simulator &simulator);

// Lets answers go that a stall kept back. With `on`, holds them back.
void stallDevice(Simulator &simulator, Device &device, bool on);

// One line on standard error if the user wanted to see what happens.
void trace(const Simulator &simulator, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

} // namespace sim
