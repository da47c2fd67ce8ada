// quorvel list and quorvel status.
#include <cstdio>

#include <nlohmann/json.hpp>

#include "helper/commands.h"
#include "helper/devices.h"
#include "helper/mounts.h"
#include "helper/table.h"
#include "helper/text.h"
#include "helper/tray_pipe.h"

namespace helper
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr double ASK_SECONDS = 2;

const char *trustWord(const Device &device)
{
    switch (device.trust) {
    case Trust::Yes:
        return "trusted";
    case Trust::No:
        return "waiting for trust";
    case Trust::Unknown:
        break;
    }
    return device.state != 0 ? libiusb_strerror(device.state) : "not known";
}

std::string model(const Device &device)
{
    return device.product.empty() ? device.kind : device.product;
}

// Names that are no UTF-8 are shown with replacement characters.
std::string dump(const Json &json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

Json deviceJson(const Device &device, const Mount *mount)
{
    return {
        {"name", device.name},
        {"kind", device.kind},
        {"model", device.product},
        {"ios", device.version},
        {"location", device.location},
        {"udid", device.udid},
        {"trust", trustWord(device)},
        {"mounted", mount != nullptr ? Json(mount->point) : Json(nullptr)},
    };
}

const char *answerWord(Answer answer)
{
    switch (answer) {
    case Answer::Well:
        return "works";
    case Answer::NotStarted:
        return "could not start";
    case Answer::Silent:
        return "does not answer";
    case Answer::Broken:
        break;
    }
    return "broken";
}

// One volume as `status` tells of it.
struct Told {
    Mount mount;
    std::string name; // of the device, "" when it is not attached
    VolumeState state;
    bool unplugged;
};

// `seen`: `devices` are all that are attached.
std::vector<Told> lookAtVolumes(const std::vector<Device> &devices, bool seen)
{
    std::vector<Told> all;
    for (const Mount &mount : readMounts()) {
        Told told = {mount, "", askVolume(mount.point, ASK_SECONDS), false};
        for (const Device &device : devices) {
            if (device.location == mount.location) {
                told.name = device.name;
            }
        }
        // One that has died does not tell its device any more.
        told.unplugged = seen && told.name.empty() && mount.location != 0;
        all.push_back(told);
    }
    return all;
}

// A volume whose device is gone goes on telling what it knows.
const char *stateWord(const Told &told)
{
    const bool well = told.state.answer == Answer::Well;
    return well && told.unplugged ? "unplugged" : answerWord(told.state.answer);
}

Json volumeJson(const Told &told)
{
    return {{"device", told.name.empty() ? Json(nullptr) : Json(told.name)},
            {"location", told.mount.location},
            {"mounted", told.mount.point},
            {"state", stateWord(told)},
            {"bytes", told.state.total},
            {"free", told.state.free},
            {"process", told.mount.server}};
}

std::vector<std::string> volumeRow(const Told &told)
{
    const bool well = told.state.answer == Answer::Well;
    const std::string nameless =
        told.mount.location == 0
            ? "(not known)"
            : "location " + std::to_string(told.mount.location);
    return {told.name.empty() ? nameless : told.name, told.mount.point,
            stateWord(told),
            well ? bytesText(told.state.free) + " of " +
                       bytesText(told.state.total)
                 : ""};
}

} // namespace

Result listNamesCommand()
{
    std::vector<Device> devices;
    const Result result = listDevices(devices);
    for (const Device &device : devices) {
        printf("%s\n", printable(device.name).c_str());
    }
    return result;
}

Result listCommand(bool json)
{
    std::vector<Device> devices;
    const Result result = listDevices(devices, Ask::Trust);
    if (!result.ok()) {
        return result;
    }
    const std::vector<Mount> mounts = readMounts();
    Json all = Json::array();
    std::vector<std::vector<std::string>> rows = {
        {"NAME", "MODEL", "IOS", "LOCATION", "TRUST", "MOUNTED AT", "UDID"}};
    for (const Device &device : devices) {
        const Mount *mount = findMount(mounts, device.location);
        all.push_back(deviceJson(device, mount));
        rows.push_back({device.name, model(device), device.version,
                        std::to_string(device.location), trustWord(device),
                        mount != nullptr ? mount->point : "-", device.udid});
    }
    const bool none = devices.empty();
    printf("%s", json   ? (dump(all) + "\n").c_str()
                 : none ? ""
                        : tableText(rows).c_str());
    return none && !json ? refuse(message::NO_DEVICE) : Result();
}

Result statusCommand(bool json)
{
    std::vector<Device> devices;
    // Without usbmuxd the mounts are still told.
    const bool seen = listDevices(devices).ok();
    const std::vector<Told> volumes = lookAtVolumes(devices, seen);
    const bool watched = trayPipeOwned(trayPipePath());
    if (json) {
        Json all = Json::array();
        for (const Told &told : volumes) {
            all.push_back(volumeJson(told));
        }
        printf("%s\n", dump({{"volumes", all}, {"watched", watched}}).c_str());
        return {};
    }
    std::vector<std::vector<std::string>> rows = {
        {"DEVICE", "MOUNTED AT", "STATE", "FREE"}};
    for (const Told &told : volumes) {
        rows.push_back(volumeRow(told));
    }
    printf("%s%s\n",
           volumes.empty() ? "Nothing is mounted.\n" : tableText(rows).c_str(),
           watched ? "A quorvel watch is running."
                   : "No quorvel watch is running.");
    return {};
}

} // namespace helper
