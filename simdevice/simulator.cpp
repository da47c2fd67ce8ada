#include "simdevice/simulator.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "simdevice/usbmux.h"

namespace sim
{

const char *const kSystemBuid = "6D3C0E2A-51F4-4B7B-9B0E-2C7A4E8D1F60";

void Space::set(uint64_t freeBytes)
{
    const std::lock_guard lock(m_mutex);
    m_free = freeBytes;
}

uint64_t Space::free() const
{
    const std::lock_guard lock(m_mutex);
    return m_free;
}

bool Space::grow(uint64_t oldSize, uint64_t newSize, uint64_t blockSize)
{
    const uint64_t before = roundToBlock(oldSize, blockSize);
    const uint64_t after = roundToBlock(newSize, blockSize);
    const std::lock_guard lock(m_mutex);
    if (after > before && after - before > m_free) {
        return false;
    }
    m_free = m_free + before - after;
    return true;
}

void Workers::start(std::function<void()> work)
{
    const std::lock_guard lock(m_mutex);
    m_workers.remove_if([](Worker &worker) {
        if (!worker.done) {
            return false;
        }
        worker.thread.join();
        return true;
    });
    Worker &worker = m_workers.emplace_back();
    worker.thread = std::thread([&worker, work = std::move(work)] {
        work();
        worker.done = true;
    });
}

void Workers::joinAll()
{
    const std::lock_guard lock(m_mutex);
    for (Worker &worker : m_workers) {
        worker.thread.join();
    }
    m_workers.clear();
}

namespace
{

std::string loadDevice(Simulator &simulator, Device &device)
{
    std::string problem = readIdentity(device.folder, device.identity);
    if (problem.empty()) {
        problem = device.pairing.load(device.folder);
    }
    if (!problem.empty()) {
        return problem;
    }
    const Identity &identity = device.identity;
    device.locationId = identity.locationId;
    device.trust = identity.trust;
    if (device.trust.mode == TrustMode::stale) {
        // Somebody who paired anew since stays paired over a restart.
        if (device.pairing.isUnused()) {
            device.pairing.makeStale(kSystemBuid);
        }
        device.trust.mode = TrustMode::trusted;
    }
    const uint64_t content = measureContent(device.folder, identity.blockSize);
    const uint64_t atStart = identity.freeSpace + identity.contentBytes;
    device.space.set(atStart > content ? atStart - content : 0);
    device.cable.configure(
        std::chrono::microseconds(simulator.options.roundTripUs),
        simulator.options.megabytesPerSecond * 1e6);
    return {};
}

void cutWires(std::list<std::weak_ptr<Wire>> &wires)
{
    for (const auto &entry : wires) {
        if (const auto wire = entry.lock()) {
            wire->cut();
        }
    }
    wires.clear();
}

} // namespace

std::string loadDevices(Simulator &simulator)
{
    for (const std::string &folder : simulator.options.folders) {
        auto device = std::make_unique<Device>();
        device->index = static_cast<int>(simulator.devices.size());
        device->folder = folder;
        std::string problem = loadDevice(simulator, *device);
        if (!problem.empty()) {
            return problem;
        }
        for (const auto &other : simulator.devices) {
            if (other->identity.udid == device->identity.udid) {
                return folder + ": has the same UDID as " + other->folder;
            }
        }
        simulator.devices.push_back(std::move(device));
    }
    for (const auto &device : simulator.devices) {
        if (!simulator.options.unplugged) {
            plugDevice(simulator, *device, 0);
        }
    }
    return {};
}

bool plugDevice(Simulator &simulator, Device &device, uint32_t locationId)
{
    const std::lock_guard lock(simulator.mutex);
    if (device.usbId != 0) {
        return false;
    }
    device.cable.bytesLeft = -1;
    device.usbId = simulator.nextDeviceId++;
    if (locationId != 0) {
        device.locationId = locationId;
    }
    announceAttached(simulator, device, false);
    if (simulator.options.wifi && device.wifiId == 0) {
        device.wifiId = simulator.nextDeviceId++;
        announceAttached(simulator, device, true);
    }
    return true;
}

bool unplugDevice(Simulator &simulator, Device &device)
{
    const std::lock_guard lock(simulator.mutex);
    if (device.usbId == 0) {
        return false;
    }
    const uint32_t id = std::exchange(device.usbId, 0);
    device.ports.clear();
    cutWires(device.usbWires);
    announceDetached(simulator, id);
    return true;
}

void cutEverything(Simulator &simulator)
{
    const std::lock_guard lock(simulator.mutex);
    simulator.quitting = true;
    for (const auto &device : simulator.devices) {
        cutWires(device->usbWires);
        cutWires(device->wifiWires);
    }
    for (const int fd : simulator.clients) {
        shutdown(fd, SHUT_RDWR);
    }
}

void stallDevice(Simulator &simulator, Device &device, bool on)
{
    const std::lock_guard lock(simulator.mutex);
    device.cable.stalled = on;
    if (!on) {
        device.cable.stallEpoch++;
    }
    for (auto *wires : {&device.usbWires, &device.wifiWires}) {
        for (const auto &entry : *wires) {
            if (const auto wire = entry.lock()) {
                wire->wake();
            }
        }
    }
}

void trace(const Simulator &simulator, const char *format, ...)
{
    if (!simulator.options.verbose) {
        return;
    }
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "%s\n", line);
}

} // namespace sim
