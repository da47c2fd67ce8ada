#include "device/house_pool.h"

#include <poll.h>

#include <algorithm>

namespace iusb
{

constexpr size_t kMostAlive = 4;
// An idle connection is kept for this long.
constexpr int64_t kKeptMs = 60'000;

static bool aliveOne(const AfcEndpoint &endpoint)
{
    return endpoint.connection && endpoint.connection->alive;
}

static size_t countAlive(const libiusb_device &device)
{
    return static_cast<size_t>(std::count_if(
        device.houses.begin(), device.houses.end(),
        [](const auto &endpoint) { return aliveOne(*endpoint); }));
}

// Closes the idle connection that was used longest ago; false when there is
// none.
static bool closeOneIdle(libiusb_device &device)
{
    AfcEndpoint *oldest = nullptr;
    for (const auto &endpoint : device.houses) {
        if (aliveOne(*endpoint) && endpoint->connection->files_open == 0 &&
            (!oldest || endpoint->used < oldest->used))
            oldest = endpoint.get();
    }
    if (!oldest)
        return false;
    afcKill(*oldest->connection);
    oldest->connection.reset();
    return true;
}

// Connections that were idle for long are closed, and endpoints forgotten that
// have none and that no handle refers to.
static void forgetUnused(libiusb_device &device)
{
    for (const auto &endpoint : device.houses) {
        if (aliveOne(*endpoint) && endpoint->connection->files_open == 0 &&
            nowMs() - endpoint->used > kKeptMs) {
            afcKill(*endpoint->connection);
            endpoint->connection.reset();
        }
    }
    device.houses.remove_if([](const auto &endpoint) {
        return endpoint.use_count() == 1 && !aliveOne(*endpoint);
    });
}

std::shared_ptr<AfcEndpoint> houseEndpoint(libiusb_device &device,
                                           const std::string &bundle_id)
{
    forgetUnused(device);
    for (const auto &endpoint : device.houses) {
        if (endpoint->bundle_id == bundle_id)
            return endpoint;
    }
    auto endpoint = std::make_shared<AfcEndpoint>();
    endpoint->device = &device;
    endpoint->bundle_id = bundle_id;
    device.houses.push_back(endpoint);
    return endpoint;
}

int houseConnect(AfcEndpoint &endpoint)
{
    libiusb_device &device = *endpoint.device;
    for (const auto &other : device.houses) {
        if (aliveOne(*other))
            afcUsable(*other->connection);
    }
    while (countAlive(device) >= kMostAlive) {
        if (!closeOneIdle(device))
            return LIBIUSB_ERROR_SERVICE_LIMIT;
    }
    // A device takes a moment to notice that a connection ended, and other
    // programs have theirs.
    for (int wait_ms = 20;; wait_ms *= 2) {
        int code =
            afcConnect(device, endpoint.bundle_id.c_str(), endpoint.connection);
        constexpr int longest_ms = 160;
        bool freed =
            code == LIBIUSB_ERROR_SERVICE_LIMIT && closeOneIdle(device);
        if (code != LIBIUSB_ERROR_SERVICE_LIMIT ||
            (!freed && wait_ms > longest_ms))
            return code;
        poll(nullptr, 0, wait_ms);
    }
}

} // namespace iusb

using iusb::guarded;

int libiusb_housearrest_init(libiusb_device *device, libiusb_afc **out)
{
    if (!out)
        return LIBIUSB_ERROR_INVALID_ARG;
    *out = nullptr;
    if (!device || !device->opened)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guarded([&] {
        auto house = std::make_unique<libiusb_afc>();
        house->context = device->context;
        house->device = device;
        house->house = true;
        int code = iusb::devicePresent(
            *device, iusb::deadlineIn(device->context->settings.timeout_ms));
        if (code == 0)
            *out = house.release();
        return code;
    });
}

int libiusb_housearrest_openapp(libiusb_afc *house, const char *bundle_id)
{
    if (!house || !house->house || !bundle_id || !*bundle_id)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guarded([&] {
        if (house->endpoint && house->endpoint->bundle_id != bundle_id)
            return static_cast<int>(LIBIUSB_ERROR_INVALID_ARG);
        house->endpoint = iusb::houseEndpoint(*house->device, bundle_id);
        iusb::AfcConnection *connection = nullptr;
        int code = iusb::afcBegin(house, iusb::Call::Other, connection);
        if (code)
            house->endpoint.reset();
        return code;
    });
}

int libiusb_housearrest_exit(libiusb_afc *house)
{
    return house ? libiusb_afc_exit(house) : LIBIUSB_ERROR_INVALID_ARG;
}
