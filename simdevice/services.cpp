#include "simdevice/services.h"

#include "simdevice/afc_server.h"

namespace sim
{

const char *const kLockdownService = "com.apple.mobile.lockdown";
const char *const kAfcService = "com.apple.afc";
const char *const kHouseArrestService = "com.apple.mobile.house_arrest";
const char *const kInstallationProxyService =
    "com.apple.mobile.installation_proxy";
const char *const kNotificationProxyService =
    "com.apple.mobile.notification_proxy";

namespace
{

constexpr auto kPortLifetime = std::chrono::seconds(30);

void serveMedia(Connection &connection)
{
    serveAfc(connection, {connection.device.folder + "/Media", false});
}

struct Service {
    const char *name;
    void (*serve)(Connection &);
};

const Service kServices[] = {
    {kLockdownService, serveLockdown},
    {kAfcService, serveMedia},
    {kHouseArrestService, serveHouseArrest},
    {kInstallationProxyService, serveInstallationProxy},
    {kNotificationProxyService, serveNotificationProxy},
};

const Service *findService(const std::string &name)
{
    for (const Service &service : kServices) {
        if (name == service.name) {
            return &service;
        }
    }
    return nullptr;
}

uint32_t presentId(const Target &target)
{
    return target.wifi ? target.device->wifiId : target.device->usbId;
}

// Notes the wire with its device, so that unplugging ends it. False if the
// device was unplugged since the client asked for the connection.
bool attachWire(Simulator &simulator, const Target &target,
                const std::shared_ptr<Wire> &wire)
{
    const std::lock_guard lock(simulator.mutex);
    if (simulator.quitting || presentId(target) != target.deviceId) {
        return false;
    }
    auto &wires =
        target.wifi ? target.device->wifiWires : target.device->usbWires;
    wires.remove_if([](const auto &entry) { return entry.expired(); });
    wires.push_back(wire);
    return true;
}

bool beginTls(Connection &connection)
{
    TlsIdentity identity;
    std::string problem = "host not paired";
    if (tlsIdentityFor(connection.device, connection.service.hostId,
                       identity) &&
        connection.stream.startTls(identity, problem)) {
        return true;
    }
    trace(connection.simulator, "tls %s: %s", connection.service.name.c_str(),
          problem.c_str());
    return false;
}

// The bytes of a message as a device in disorder would send them.
std::string nonsenseMessage(const std::string &kind, const Plist &list)
{
    if (kind == "length") {
        return std::string("\xFF\xFF\xFF\xF0", 4);
    }
    if (kind == "empty") {
        return std::string(4, '\0');
    }
    if (kind == "array") {
        return messageBytes(newArray());
    }
    if (kind == "types") {
        Plist wrong = newDict();
        const auto request = getString(list.get(), "Request");
        setString(wrong.get(), "Request", request.value_or("?"));
        for (const char *key : {"Port", "Value", "SessionID", "Type"}) {
            setNode(wrong.get(), key, newArray());
        }
        return messageBytes(wrong);
    }
    std::string bytes = messageBytes(list);
    for (size_t i = 4; i < bytes.size(); i++) {
        bytes[i] = static_cast<char>(bytes[i] ^ 0x5A);
    }
    return bytes;
}

} // namespace

bool isService(const std::string &name)
{
    return name != kLockdownService && findService(name) != nullptr;
}

uint32_t countHouseArrest(Device &device)
{
    const Time now = Clock::now();
    uint32_t count = device.houseArrest;
    for (auto it = device.ports.begin(); it != device.ports.end();) {
        if (now - it->second.started > kPortLifetime) {
            it = device.ports.erase(it);
            continue;
        }
        count += it->second.name == kHouseArrestService ? 1 : 0;
        ++it;
    }
    return count;
}

bool takePort(Device &device, uint16_t port, Target &target)
{
    target.deviceId = presentId(target);
    if (port == kLockdownPort) {
        target.service.name = kLockdownService;
        return true;
    }
    const auto found = device.ports.find(port);
    if (found == device.ports.end()) {
        return false;
    }
    target.service = found->second;
    device.ports.erase(found);
    device.houseArrest += target.service.name == kHouseArrestService ? 1 : 0;
    return true;
}

void giveBackPort(Simulator &simulator, const Target &target)
{
    if (target.service.name == kHouseArrestService) {
        const std::lock_guard lock(simulator.mutex);
        target.device->houseArrest--;
    }
}

void servePort(Simulator &simulator, const Target &target, int fd)
{
    const GaugeHold gauge(simulator.statistics.deviceConnections);
    Device &device = *target.device;
    const auto wire =
        std::make_shared<Wire>(fd, device.cable, [&simulator, &device] {
            unplugDevice(simulator, device);
        });
    if (attachWire(simulator, target, wire)) {
        const std::string &name = target.service.name;
        simulator.statistics.count("connections", name);
        trace(simulator, "connected %s", name.c_str());
        Stream stream(*wire);
        Connection connection{simulator, device, stream, target.service};
        const Service *service = findService(name);
        if (service != nullptr &&
            (!target.service.tls || beginTls(connection))) {
            service->serve(connection);
        }
        wire->finish();
        trace(simulator, "ended %s", name.c_str());
    }
    giveBackPort(simulator, target);
}

bool tlsIdentityFor(const Device &device, const std::string &hostId,
                    TlsIdentity &identity)
{
    const auto host = device.pairing.host(hostId);
    if (!host) {
        return false;
    }
    identity = {device.identity.privateKey, host->deviceCertificate,
                host->rootCertificate};
    return true;
}

bool applyBeforeAnswer(Connection &connection, const FaultPlan &plan)
{
    if (plan.delayMs > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(plan.delayMs));
        connection.stream.wire().touch();
    }
    if (plan.unplug) {
        unplugDevice(connection.simulator, connection.device);
        return false;
    }
    if (plan.stall) {
        connection.stream.wire().hold();
    }
    return !plan.drop;
}

bool sendMessage(Connection &connection, const FaultPlan &plan,
                 const Plist &list)
{
    std::string nonsense;
    {
        const std::lock_guard lock(connection.simulator.mutex);
        nonsense = connection.simulator.lockdownNonsense;
    }
    std::string bytes = nonsense == "off" ? messageBytes(list)
                                          : nonsenseMessage(nonsense, list);
    if (plan.truncate) {
        bytes.resize(std::min<size_t>(bytes.size(), *plan.truncate));
    }
    return connection.stream.write(bytes) && (!plan.truncate || plan.keepOpen);
}

} // namespace sim
