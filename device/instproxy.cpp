// The installation proxy. Its exchange is our own: libimobiledevice's waits for
// ever for a device that went silent.
#include <cstring>

#include "device/app_list.h"
#include "device/device.h"
#include "device/plist_stream.h"

struct libiusb_instproxy {
    libiusb_device *device = nullptr;
    iusb::Stream stream;
};

namespace iusb
{

static int connectProxy(libiusb_instproxy &proxy)
{
    proxy.stream = Stream();
    return startService(*proxy.device, "com.apple.mobile.installation_proxy",
                        proxy.stream,
                        deadlineIn(proxy.device->context->settings.timeout_ms));
}

static int browse(libiusb_instproxy &proxy, std::vector<App> &apps)
{
    // A device sends about twenty apps at a time; one that dribbles them has
    // this many times the limit of a wait for all of them.
    constexpr int most_messages = 10'000;
    constexpr int patience = 6;
    int limit = proxy.device->context->settings.timeout_ms;
    Deadline whole = deadlineIn(limit * patience);
    int code = plistSend(proxy.stream, appListRequest(), deadlineIn(limit));
    bool complete = false;
    for (int i = 0; code == 0 && !complete; i++) {
        Plist message;
        code = i < most_messages
                   ? plistReceive(proxy.stream, message, sooner(whole, limit))
                   : LIBIUSB_ERROR_PROTOCOL;
        if (code == 0)
            code = takeApps(message, apps, complete);
    }
    // A connection that broke off in the middle of a list is of no more use.
    if (code)
        proxy.stream = Stream();
    return code == LIBIUSB_ERROR_PROTOCOL
               ? static_cast<int>(LIBIUSB_ERROR_LOST_CONNECTION)
               : code;
}

static char *newText(const std::string &text)
{
    char *copy = new char[text.size() + 1];
    memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

static void freeApps(libiusb_app *list)
{
    while (list) {
        libiusb_app *next = list->next;
        delete[] list->name;
        delete[] list->bundle_id;
        delete list;
        list = next;
    }
}

struct AppsFree {
    void operator()(libiusb_app *list) const { freeApps(list); }
};

static libiusb_app *newAppList(const std::vector<App> &apps)
{
    std::unique_ptr<libiusb_app, AppsFree> first;
    libiusb_app *last = nullptr;
    for (const App &app : apps) {
        std::unique_ptr<libiusb_app, AppsFree> node(new libiusb_app{});
        node->name = newText(app.name);
        node->bundle_id = newText(app.bundle_id);
        libiusb_app *added = node.get();
        if (last) {
            last->next = node.release();
        } else {
            first = std::move(node);
        }
        last = added;
    }
    return first.release();
}

} // namespace iusb

using iusb::guarded;

int libiusb_instproxy_init(libiusb_device *device, libiusb_instproxy **out)
{
    if (!out)
        return LIBIUSB_ERROR_INVALID_ARG;
    *out = nullptr;
    if (!device || !device->opened)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guarded([&] {
        auto proxy = std::make_unique<libiusb_instproxy>();
        proxy->device = device;
        int code = iusb::connectProxy(*proxy);
        if (code == 0)
            *out = proxy.release();
        return code;
    });
}

int libiusb_instproxy_exit(libiusb_instproxy *instproxy)
{
    delete instproxy;
    return LIBIUSB_SUCCESS;
}

int libiusb_instproxy_getAppId(libiusb_instproxy *instproxy, libiusb_app **list)
{
    if (!list)
        return LIBIUSB_ERROR_INVALID_ARG;
    *list = nullptr;
    if (!instproxy)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guarded([&] {
        std::vector<iusb::App> apps;
        int code = iusb::streamQuiet(instproxy->stream)
                       ? 0
                       : iusb::connectProxy(*instproxy);
        if (code == 0)
            code = iusb::browse(*instproxy, apps);
        if (code == 0)
            *list = iusb::newAppList(apps);
        return code;
    });
}
