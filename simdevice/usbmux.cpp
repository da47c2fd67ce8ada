#include "simdevice/usbmux.h"

#include <arpa/inet.h>
#include <endian.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "simdevice/plist.h"
#include "simdevice/services.h"
#include "simdevice/usbmux_messages.h"

namespace sim
{

namespace
{

constexpr uint32_t kMaxRequest = 65536; // a longer one closes the connection

enum Result : uint32_t {
    kOk = 0,
    kBadCommand = 1,
    kBadDevice = 2, // also ENOENT: no such pair record
    kRefused = 3,
    kInvalid = 22,
};

struct Request {
    UsbmuxHeader header;
    Plist list;
    std::string type;
};

bool readExactly(int fd, void *bytes, size_t size)
{
    auto *target = static_cast<char *>(bytes);
    while (size > 0) {
        const ssize_t n = recv(fd, target, size, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        target += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

bool writeExactly(int fd, const std::string &bytes, int flags)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = send(fd, bytes.data() + done, bytes.size() - done,
                               MSG_NOSIGNAL | flags);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

struct Entry {
    uint32_t id;
    Device *device;
    bool wifi;
};

// What is attached, oldest first. Called with the mutex held.
std::vector<Entry> attachedEntries(Simulator &simulator)
{
    std::vector<Entry> entries;
    for (const auto &device : simulator.devices) {
        if (device->usbId != 0) {
            entries.push_back({device->usbId, device.get(), false});
        }
        if (device->wifiId != 0) {
            entries.push_back({device->wifiId, device.get(), true});
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry &a, const Entry &b) { return a.id < b.id; });
    return entries;
}

void tellListeners(Simulator &simulator, const Plist &message)
{
    const std::string bytes = plistFrame(0, message);
    // A listener that does not read loses its connection, as it would lose
    // events; nobody waits for it.
    simulator.listeners.remove_if([&](const Listener &listener) {
        if (writeExactly(listener.fd, bytes, MSG_DONTWAIT)) {
            return false;
        }
        shutdown(listener.fd, SHUT_RDWR);
        return true;
    });
}

class Client
{
  public:
    Client(Simulator &simulator, int fd) : m_simulator(simulator), m_fd(fd) {}

    // Handles requests until the end or until the descriptor belongs to a
    // device connection.
    void serve();

  private:
    bool readRequest(Request &request);
    bool handle(Request &request);
    bool sendResult(const Request &request, uint32_t number);
    bool sendList(const Request &request, const Plist &list);
    bool listDevices(const Request &request);
    bool listen(const Request &request);
    bool connect(const Request &request);
    bool readPairRecord(const Request &request);
    bool savePairRecord(const Request &request);
    bool deletePairRecord(const Request &request);
    bool readBuid(const Request &request);
    bool listListeners(const Request &request);
    Device *findDevice(const std::optional<std::string> &udid);
    void forget();

    Simulator &m_simulator;
    int m_fd;

    struct Command {
        const char *type;
        bool (Client::*handler)(const Request &);
    };
    static const std::array<Command, 8> kCommands;
};

const std::array<Client::Command, 8> Client::kCommands = {{
    {"ListDevices", &Client::listDevices},
    {"Listen", &Client::listen},
    {"Connect", &Client::connect},
    {"ReadBUID", &Client::readBuid},
    {"ReadPairRecord", &Client::readPairRecord},
    {"SavePairRecord", &Client::savePairRecord},
    {"DeletePairRecord", &Client::deletePairRecord},
    {"ListListeners", &Client::listListeners},
}};

bool Client::readRequest(Request &request)
{
    uint32_t fields[4];
    if (!readExactly(m_fd, fields, sizeof fields)) {
        return false;
    }
    request.header = {le32toh(fields[0]), le32toh(fields[1]),
                      le32toh(fields[2]), le32toh(fields[3])};
    const uint32_t length = request.header.length;
    if (length < kUsbmuxHeaderSize || length > kMaxRequest) {
        return false;
    }
    std::string payload(length - kUsbmuxHeaderSize, '\0');
    if (!readExactly(m_fd, payload.data(), payload.size())) {
        return false;
    }
    if (request.header.version == kUsbmuxPlistVersion &&
        request.header.message == kUsbmuxPlist) {
        request.list = fromXml(payload);
        request.type =
            getString(request.list.get(), "MessageType").value_or("");
    }
    return true;
}

bool Client::sendResult(const Request &request, uint32_t number)
{
    if (request.header.version != kUsbmuxPlistVersion) {
        const uint32_t value = htole32(number);
        std::string body(sizeof value, '\0');
        std::memcpy(body.data(), &value, sizeof value);
        return writeExactly(m_fd,
                            usbmuxFrame(request.header.version, kUsbmuxResult,
                                        request.header.tag, body),
                            0);
    }
    Plist list = newDict();
    setString(list.get(), "MessageType", "Result");
    setUint(list.get(), "Number", number);
    return sendList(request, list);
}

bool Client::sendList(const Request &request, const Plist &list)
{
    return writeExactly(m_fd, plistFrame(request.header.tag, list), 0);
}

bool Client::listDevices(const Request &request)
{
    Plist devices = newArray();
    {
        const std::lock_guard lock(m_simulator.mutex);
        for (const Entry &entry : attachedEntries(m_simulator)) {
            append(devices.get(), attachedMessage(*entry.device, entry.wifi));
        }
    }
    Plist list = newDict();
    setNode(list.get(), "DeviceList", std::move(devices));
    return sendList(request, list);
}

bool Client::listen(const Request &request)
{
    {
        // Under the lock, so that no event overtakes the present devices.
        const std::lock_guard lock(m_simulator.mutex);
        if (!sendResult(request, kOk)) {
            return false;
        }
        for (const Entry &entry : attachedEntries(m_simulator)) {
            const Plist message = attachedMessage(*entry.device, entry.wifi);
            if (!writeExactly(m_fd, plistFrame(0, message), MSG_DONTWAIT)) {
                return false;
            }
        }
        m_simulator.listeners.push_back({m_fd});
    }
    // Nothing is expected from the client any more but its end.
    char ignored[256];
    ssize_t n = 0;
    do {
        n = recv(m_fd, ignored, sizeof ignored, 0);
    } while (n > 0 || (n < 0 && errno == EINTR));
    return false;
}

bool Client::connect(const Request &request)
{
    const auto id = getUint(request.list.get(), "DeviceID");
    const auto port = getUint(request.list.get(), "PortNumber");
    if (!id || !port || *port > 0xFFFF) {
        return sendResult(request, kInvalid);
    }
    Target target;
    {
        const std::lock_guard lock(m_simulator.mutex);
        for (const Entry &entry : attachedEntries(m_simulator)) {
            if (entry.id == *id) {
                target.device = entry.device;
                target.wifi = entry.wifi;
            }
        }
        if (target.device == nullptr) {
            return sendResult(request, kBadDevice);
        }
        if (!takePort(*target.device, ntohs(static_cast<uint16_t>(*port)),
                      target)) {
            return sendResult(request, kRefused);
        }
    }
    // The device's answer to a new connection takes one round trip.
    if (target.device->cable.delay.count() > 0) {
        std::this_thread::sleep_for(target.device->cable.delay * 2);
    }
    if (!sendResult(request, kOk)) {
        giveBackPort(m_simulator, target);
        return false;
    }
    forget();
    servePort(m_simulator, target, std::exchange(m_fd, -1));
    return false;
}

Device *Client::findDevice(const std::optional<std::string> &udid)
{
    for (const auto &device : m_simulator.devices) {
        if (udid && device->identity.udid == *udid) {
            return device.get();
        }
    }
    return nullptr;
}

bool Client::readBuid(const Request &request)
{
    Plist list = newDict();
    setString(list.get(), "BUID", kSystemBuid);
    return sendList(request, list);
}

bool Client::readPairRecord(const Request &request)
{
    const Device *device =
        findDevice(getString(request.list.get(), "PairRecordID"));
    const auto record =
        device != nullptr ? device->pairing.record() : std::nullopt;
    if (!record) {
        return sendResult(request, kBadDevice);
    }
    Plist list = newDict();
    setData(list.get(), "PairRecordData", *record);
    return sendList(request, list);
}

bool Client::savePairRecord(const Request &request)
{
    Device *device = findDevice(getString(request.list.get(), "PairRecordID"));
    const auto record = getData(request.list.get(), "PairRecordData");
    if (device == nullptr || !record) {
        return sendResult(request, kInvalid);
    }
    device->pairing.saveRecord(*record);
    const bool answered = sendResult(request, kOk);
    const std::lock_guard lock(m_simulator.mutex);
    if (device->usbId != 0) {
        Plist message = newDict();
        setString(message.get(), "MessageType", "Paired");
        setUint(message.get(), "DeviceID", device->usbId);
        tellListeners(m_simulator, message);
    }
    return answered;
}

bool Client::deletePairRecord(const Request &request)
{
    Device *device = findDevice(getString(request.list.get(), "PairRecordID"));
    const bool deleted = device != nullptr && device->pairing.deleteRecord();
    return sendResult(request, deleted ? kOk : kBadDevice);
}

bool Client::listListeners(const Request &request)
{
    Plist list = newDict();
    Plist listeners = newArray();
    const std::lock_guard lock(m_simulator.mutex);
    for (size_t i = 0; i < m_simulator.listeners.size(); i++) {
        Plist entry = newDict();
        setString(entry.get(), "ProgName", "client");
        append(listeners.get(), std::move(entry));
    }
    setNode(list.get(), "ListenerList", std::move(listeners));
    return sendList(request, list);
}

bool Client::handle(Request &request)
{
    const std::string name = request.type.empty() ? "unreadable" : request.type;
    m_simulator.statistics.count("usbmux", name);
    trace(m_simulator, "usbmux %s", name.c_str());
    std::string nonsense;
    {
        const std::lock_guard lock(m_simulator.mutex);
        nonsense = m_simulator.usbmuxNonsense;
    }
    if (nonsense == "silent") {
        return true;
    }
    if (nonsense != "off") {
        writeExactly(m_fd, nonsenseFrame(nonsense, request.header.tag), 0);
        return nonsense != "text";
    }
    const FaultPlan plan = m_simulator.faults.plan(Layer::usbmux, name, -1);
    if (plan.delayMs > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(plan.delayMs));
    }
    if (plan.drop) {
        return false;
    }
    if (plan.stall) {
        return true;
    }
    if (plan.fail) {
        return sendResult(request, static_cast<uint32_t>(std::strtoul(
                                       plan.fail->c_str(), nullptr, 10)));
    }
    for (const Command &command : kCommands) {
        if (request.type == command.type) {
            return (this->*command.handler)(request);
        }
    }
    return sendResult(request, kBadCommand);
}

// The descriptor is no longer one that speaks usbmux.
void Client::forget()
{
    const std::lock_guard lock(m_simulator.mutex);
    std::erase(m_simulator.clients, m_fd);
    m_simulator.listeners.remove_if(
        [this](const Listener &listener) { return listener.fd == m_fd; });
}

void Client::serve()
{
    const GaugeHold gauge(m_simulator.statistics.openConnections);
    Request request;
    while (readRequest(request) && handle(request)) {
        request = Request();
    }
    if (m_fd >= 0) {
        forget();
        close(m_fd);
    }
}

} // namespace

void announceAttached(Simulator &simulator, const Device &device, bool wifi)
{
    tellListeners(simulator, attachedMessage(device, wifi));
}

void announceDetached(Simulator &simulator, uint32_t deviceId)
{
    Plist message = newDict();
    setString(message.get(), "MessageType", "Detached");
    setUint(message.get(), "DeviceID", deviceId);
    tellListeners(simulator, message);
}

void serveUsbmuxClient(Simulator &simulator, int fd)
{
    {
        const std::lock_guard lock(simulator.mutex);
        if (simulator.quitting) {
            close(fd);
            return;
        }
        simulator.clients.push_back(fd);
    }
    Client(simulator, fd).serve();
}

} // namespace sim
