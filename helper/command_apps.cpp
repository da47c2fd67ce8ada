// quorvel apps.
#include <cstdio>
#include <utility>

#include <nlohmann/json.hpp>

#include "helper/commands.h"
#include "helper/devices.h"
#include "helper/table.h"
#include "helper/waiting_line.h"

namespace helper
{

namespace
{

using Json = nlohmann::ordered_json;
using Apps = std::vector<std::pair<std::string, std::string>>; // name, bundle

void takeList(libiusb_app *list, Apps &apps)
{
    while (list != nullptr) {
        apps.emplace_back(list->name, list->bundle_id);
        libiusb_app *next = list->next;
        delete[] list->name;
        delete[] list->bundle_id;
        delete list;
        list = next;
    }
}

int readApps(libiusb_device *opened, Apps &apps)
{
    libiusb_instproxy *proxy = nullptr;
    int code = libiusb_instproxy_init(opened, &proxy);
    if (code == 0) {
        libiusb_app *list = nullptr;
        code = libiusb_instproxy_getAppId(proxy, &list);
        takeList(list, apps);
        libiusb_instproxy_exit(proxy);
    }
    return code;
}

void print(const Apps &apps, bool json)
{
    Json all = Json::array();
    std::vector<std::vector<std::string>> rows = {{"APP", "BUNDLE"}};
    for (const auto &[name, bundle] : apps) {
        all.push_back({{"name", name}, {"bundle", bundle}});
        rows.push_back({name, bundle});
    }
    if (json) {
        printf("%s\n",
               all.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    } else {
        printf("%s", apps.empty() ? "No app shares documents.\n"
                                  : tableText(rows).c_str());
    }
}

} // namespace

Result appsCommand(const std::string &text, double wait, bool json)
{
    std::vector<Device> devices;
    Device device;
    Result result = listDevices(devices);
    if (result.ok()) {
        result = chooseDevice(devices, text, device);
    }
    if (result.ok()) {
        WaitingLine line;
        result =
            waitForTrust(device, wait, [&](const std::string &what, double s) {
                line.show(what, s);
            });
    }
    if (!result.ok()) {
        return result;
    }
    Apps apps;
    const int code = withOpenDevice(device.udid, [&](libiusb_device *opened) {
        return readApps(opened, apps);
    });
    if (code != 0) {
        return explain(code, device.name);
    }
    print(apps, json);
    return {};
}

} // namespace helper
