// Ports of a device and the services behind them.
#pragma once

#include "simdevice/simulator.h"
#include "simdevice/stream.h"

namespace sim
{

constexpr uint16_t kLockdownPort = 62078;
extern const char *const kLockdownService;
extern const char *const kAfcService;
extern const char *const kHouseArrestService;
extern const char *const kInstallationProxyService;
extern const char *const kNotificationProxyService;

// What a client is about to be connected to.
struct Target {
    Device *device = nullptr;
    bool wifi = false;
    uint32_t deviceId = 0; // the plug-in it belongs to
    StartedService service;
};

// One connection to a service.
struct Connection {
    Simulator &simulator;
    Device &device;
    Stream &stream;
    StartedService service;
};

// Takes a started service off its port (it can be connected once), or gives
// lockdown for its own port. False if nobody listens there. Called with
// Simulator::mutex held; every success is followed by servePort or
// giveBackPort.
bool takePort(Device &device, uint16_t port, Target &target);
void giveBackPort(Simulator &simulator, const Target &target);

// Serves a connected client to its end; closes the descriptor.
void servePort(Simulator &simulator, const Target &target, int fd);

bool isService(const std::string &name);

// How many house arrest connections a device has, with those that were started
// and are not connected yet. Called with Simulator::mutex held; forgets
// services that nobody connected to in time.
uint32_t countHouseArrest(Device &device);

// What TLS with this paired host needs; false if the host is not known.
bool tlsIdentityFor(const Device &device, const std::string &hostId,
                    TlsIdentity &identity);

// The services. Each serves its connection to the end.
void serveLockdown(Connection &connection);
void serveHouseArrest(Connection &connection);
void serveInstallationProxy(Connection &connection);
void serveNotificationProxy(Connection &connection);

// Does what a plan asks for before a request is answered: delays, holds the
// answer back, pulls the cable. False: the connection ends without an answer.
bool applyBeforeAnswer(Connection &connection, const FaultPlan &plan);

// Sends a property list as a message, spoiled as the plan asks. False: the
// connection has ended.
bool sendMessage(Connection &connection, const FaultPlan &plan,
                 const Plist &list);

} // namespace sim
