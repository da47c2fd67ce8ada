// The services that talk in property lists after lockdown has started them:
// house arrest, the installation proxy, the notification proxy.

#include <algorithm>

#include "simdevice/afc_server.h"
#include "simdevice/services.h"

namespace sim
{

namespace
{

constexpr size_t kBrowseChunk = 2; // apps in one message, to have several

// Counts a request, asks for its faults and applies those that come before the
// answer. False: the connection ends.
bool beginRequest(Connection &connection, const char *group,
                  const std::string &name, FaultPlan &plan)
{
    connection.simulator.statistics.count(group, name);
    trace(connection.simulator, "%s %s", group, name.c_str());
    plan = connection.simulator.faults.plan(Layer::service, name,
                                            connection.device.index);
    return applyBeforeAnswer(connection, plan);
}

bool sendWord(Connection &connection, const FaultPlan &plan, const char *key,
              const std::string &word)
{
    Plist answer = newDict();
    setString(answer.get(), key, word);
    return sendMessage(connection, plan, answer);
}

const App *findApp(const Device &device, const std::string &bundleId)
{
    for (const App &app : device.identity.apps) {
        if (app.bundleId == bundleId) {
            return &app;
        }
    }
    return nullptr;
}

// Why an app's folder is not given out; empty if it is. Only development tools
// get whole containers, and only of apps that nobody here has.
std::string vendRefusal(const Device &device, const std::string &command,
                        const std::string &bundleId)
{
    if (command != "VendDocuments" && command != "VendContainer") {
        return "UnknownCommand";
    }
    const App *app = findApp(device, bundleId);
    if (app == nullptr) {
        return "ApplicationLookupFailed";
    }
    return command == "VendDocuments" && app->user && app->sharing
               ? ""
               : "InstallationLookupFailed";
}

// ---------------------------------------------------------------------------
// Installation proxy

bool wantedAttribute(plist_t options, const char *key)
{
    plist_t names = getNode(options, "ReturnAttributes", PLIST_ARRAY);
    if (names == nullptr) {
        return true;
    }
    for (uint32_t i = 0; i < plist_array_get_size(names); i++) {
        if (stringOf(plist_array_get_item(names, i)) == key) {
            return true;
        }
    }
    return false;
}

Plist describeApp(const App &app, plist_t options)
{
    Plist list = newDict();
    const std::pair<const char *, std::string> texts[] = {
        {"ApplicationType", app.user ? "User" : "System"},
        {"CFBundleDisplayName", app.name},
        {"CFBundleExecutable", app.name},
        {"CFBundleIdentifier", app.bundleId},
        {"CFBundleName", app.name},
        {"CFBundleShortVersionString", app.version},
        {"CFBundleVersion", app.version},
        {"Path", "/private/var/containers/Bundle/Application/" + app.bundleId},
    };
    for (const auto &[key, value] : texts) {
        if (!value.empty() && wantedAttribute(options, key)) {
            setString(list.get(), key, value);
        }
    }
    if (app.sharing && wantedAttribute(options, "UIFileSharingEnabled")) {
        setBool(list.get(), "UIFileSharingEnabled", true);
    }
    return list;
}

std::vector<const App *> chosenApps(const Device &device, plist_t options)
{
    const auto type = getString(options, "ApplicationType").value_or("Any");
    plist_t ids = getNode(options, "BundleIDs", PLIST_ARRAY);
    std::vector<const App *> apps;
    for (const App &app : device.identity.apps) {
        const bool typeFits = type == "Any" || (type == "User") == app.user;
        bool idFits = ids == nullptr;
        for (uint32_t i = 0; !idFits && i < plist_array_get_size(ids); i++) {
            idFits = stringOf(plist_array_get_item(ids, i)) == app.bundleId;
        }
        if (typeFits && idFits) {
            apps.push_back(&app);
        }
    }
    return apps;
}

bool browse(Connection &connection, const FaultPlan &plan, plist_t options)
{
    const auto apps = chosenApps(connection.device, options);
    for (size_t first = 0; first < apps.size(); first += kBrowseChunk) {
        const size_t end = std::min(first + kBrowseChunk, apps.size());
        Plist current = newArray();
        for (size_t i = first; i < end; i++) {
            append(current.get(), describeApp(*apps[i], options));
        }
        Plist message = newDict();
        setString(message.get(), "Status", "BrowsingApplications");
        setUint(message.get(), "CurrentIndex", first);
        setUint(message.get(), "CurrentAmount", end - first);
        setUint(message.get(), "Total", apps.size());
        setNode(message.get(), "CurrentList", std::move(current));
        if (!sendMessage(connection, plan, message)) {
            return false;
        }
    }
    return sendWord(connection, plan, "Status", "Complete");
}

bool lookUp(Connection &connection, const FaultPlan &plan, plist_t options)
{
    Plist found = newDict();
    for (const App *app : chosenApps(connection.device, options)) {
        setNode(found.get(), app->bundleId.c_str(), describeApp(*app, options));
    }
    Plist message = newDict();
    setString(message.get(), "Status", "Complete");
    setNode(message.get(), "LookupResult", std::move(found));
    return sendMessage(connection, plan, message);
}

bool answerInstallationProxy(Connection &connection, const Plist &request)
{
    const auto name =
        getString(request.get(), "Command").value_or("unreadable");
    FaultPlan plan;
    if (!beginRequest(connection, "installation_proxy", name, plan)) {
        return false;
    }
    if (plan.fail) {
        return sendWord(connection, plan, "Error", *plan.fail);
    }
    plist_t options = getNode(request.get(), "ClientOptions", PLIST_DICT);
    if (name == "Browse") {
        return browse(connection, plan, options);
    }
    if (name == "Lookup") {
        return lookUp(connection, plan, options);
    }
    return sendWord(connection, plan, "Error", "UnknownCommand");
}

} // namespace

// One command per connection; after a success the same connection is AFC.
void serveHouseArrest(Connection &connection)
{
    const GaugeHold gauge(connection.simulator.statistics.houseArrest);
    const Plist request = readMessage(connection.stream);
    if (!request) {
        return;
    }
    const auto command =
        getString(request.get(), "Command").value_or("unreadable");
    const auto bundleId = getString(request.get(), "Identifier").value_or("");
    FaultPlan plan;
    if (!beginRequest(connection, "house_arrest", command, plan)) {
        return;
    }
    const std::string refusal =
        plan.fail ? *plan.fail
                  : vendRefusal(connection.device, command, bundleId);
    if (!refusal.empty()) {
        sendWord(connection, plan, "Error", refusal);
        // The client hears of it before the connection ends.
        readMessage(connection.stream);
        return;
    }
    if (sendWord(connection, plan, "Status", "Complete")) {
        serveAfc(connection,
                 {connection.device.folder + "/Apps/" + bundleId, true});
    }
}

void serveInstallationProxy(Connection &connection)
{
    while (const Plist request = readMessage(connection.stream)) {
        if (!answerInstallationProxy(connection, request)) {
            break;
        }
    }
}

// Takes observations, and has nothing to tell.
void serveNotificationProxy(Connection &connection)
{
    while (const Plist request = readMessage(connection.stream)) {
        const auto name =
            getString(request.get(), "Command").value_or("unreadable");
        FaultPlan plan;
        if (!beginRequest(connection, "notification_proxy", name, plan)) {
            break;
        }
        if (name == "Shutdown") {
            sendWord(connection, plan, "Command", "ProxyDeath");
            break;
        }
    }
}

} // namespace sim
