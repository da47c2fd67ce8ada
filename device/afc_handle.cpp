#include "device/afc_handle.h"

#include <cstring>

#include "device/afc_file.h"
#include "device/house_arrest.h"
#include "device/house_pool.h"

namespace iusb
{

int afcConnect(libiusb_device &device, const char *bundle_id,
               std::shared_ptr<AfcConnection> &out)
{
    Deadline deadline = deadlineIn(device.context->settings.timeout_ms);
    Stream stream;
    int code = startService(
        device, bundle_id ? "com.apple.mobile.house_arrest" : "com.apple.afc",
        stream, deadline);
    if (code == 0 && bundle_id)
        code = vendDocuments(stream, bundle_id, deadline);
    if (code == 0)
        out = afcOver(std::move(stream), device.context->settings);
    return code;
}

static int connectEndpoint(AfcEndpoint &endpoint)
{
    if (!endpoint.bundle_id.empty())
        return houseConnect(endpoint);
    int code = afcConnect(*endpoint.device, nullptr, endpoint.connection);
    if (code == 0)
        endpoint.device->media = endpoint.connection;
    return code;
}

int afcBegin(libiusb_afc *afc, Call call, AfcConnection *&connection)
{
    if (!afc || !afc->endpoint)
        return LIBIUSB_ERROR_INVALID_ARG;
    if (call != Call::Directory)
        afc->directory.reset();
    if (call != Call::Info)
        dropQueue(afc->queue);
    if (call != Call::Info && call != Call::Open)
        dropAhead(*afc);
    AfcEndpoint &endpoint = *afc->endpoint;
    if (!endpoint.connection || !afcUsable(*endpoint.connection)) {
        endpoint.connection.reset();
        int code = connectEndpoint(endpoint);
        if (code)
            return code;
    }
    endpoint.used = nowMs();
    connection = endpoint.connection.get();
    return 0;
}

bool goodPath(const char *path)
{
    constexpr size_t longest = 16 << 10;
    return path && *path && strnlen(path, longest + 1) <= longest;
}

void dropQueue(InfoQueue &queue)
{
    if (queue.connection && queue.connection->alive) {
        for (size_t i = 0; i < queue.sent; i++)
            queue.connection->replies.abandon(queue.entries[i].packet);
    }
    queue.entries.clear();
    queue.sent = 0;
    queue.connection.reset();
}

} // namespace iusb

using iusb::AfcEndpoint;
using iusb::guarded;

int libiusb_afc_init(libiusb_device *device, libiusb_afc **out)
{
    if (!out)
        return LIBIUSB_ERROR_INVALID_ARG;
    *out = nullptr;
    if (!device || !device->opened)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guarded([&] {
        auto afc = std::make_unique<libiusb_afc>();
        afc->context = device->context;
        afc->device = device;
        afc->endpoint = std::make_shared<AfcEndpoint>();
        afc->endpoint->device = device;
        int code = iusb::connectEndpoint(*afc->endpoint);
        if (code == 0)
            *out = afc.release();
        return code;
    });
}

int libiusb_afc_exit(libiusb_afc *afc)
{
    if (!afc)
        return LIBIUSB_SUCCESS;
    int code = iusb::guardedOn(afc, [&] {
        iusb::dropAhead(*afc);
        iusb::closeFilesOf(*afc);
        iusb::dropQueue(afc->queue);
        return 0;
    });
    if (code == 0)
        delete afc;
    return code;
}
