#include "simdevice/device_folder.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "simdevice/plist.h"

namespace sim
{

namespace
{

namespace fs = std::filesystem;

struct TrustName {
    TrustMode mode;
    const char *name;
};

constexpr TrustName kTrustNames[] = {
    {TrustMode::trusted, "trusted"}, {TrustMode::pending, "pending"},
    {TrustMode::locked, "locked"},   {TrustMode::denied, "denied"},
    {TrustMode::stale, "stale"},
};

// The text values of device.plist and where they live in the record.
struct TextField {
    const char *key;
    std::string Identity::*field;
};

constexpr TextField kTextFields[] = {
    {"UniqueDeviceID", &Identity::udid},
    {"DeviceName", &Identity::name},
    {"ProductVersion", &Identity::iosVersion},
    {"BuildVersion", &Identity::buildVersion},
    {"ProductType", &Identity::productType},
    {"DeviceClass", &Identity::deviceClass},
    {"ModelNumber", &Identity::modelNumber},
    {"HardwareModel", &Identity::hardwareModel},
    {"SerialNumber", &Identity::serialNumber},
    {"WiFiAddress", &Identity::wifiAddress},
    {"PrivateKey", &Identity::privateKey},
};

struct NumberField {
    const char *key;
    uint64_t Identity::*field;
};

constexpr NumberField kNumberFields[] = {
    {"ConnectionSpeed", &Identity::connectionSpeed},
    {"TotalDiskCapacity", &Identity::capacity},
    {"FreeCapacity", &Identity::freeSpace},
    {"ContentBytes", &Identity::contentBytes},
    {"BlockSize", &Identity::blockSize},
};

App readApp(plist_t node)
{
    App app;
    app.bundleId = getString(node, "CFBundleIdentifier").value_or("");
    app.name = getString(node, "CFBundleDisplayName").value_or("");
    app.version = getString(node, "CFBundleShortVersionString").value_or("1.0");
    app.user = getString(node, "ApplicationType").value_or("User") == "User";
    app.sharing = getBool(node, "UIFileSharingEnabled").value_or(false);
    return app;
}

Plist writeApp(const App &app)
{
    Plist node = newDict();
    setString(node.get(), "CFBundleIdentifier", app.bundleId);
    setString(node.get(), "CFBundleDisplayName", app.name);
    setString(node.get(), "CFBundleShortVersionString", app.version);
    setString(node.get(), "ApplicationType", app.user ? "User" : "System");
    if (app.sharing) {
        setBool(node.get(), "UIFileSharingEnabled", true);
    }
    return node;
}

// What must hold for the device to be served at all.
std::string checkIdentity(const Identity &identity)
{
    if (identity.udid.empty() || identity.udid.size() > 43) {
        return "UniqueDeviceID must have 1 to 43 characters";
    }
    if (identity.privateKey.empty()) {
        return "PrivateKey is missing";
    }
    if (identity.blockSize == 0) {
        return "BlockSize must not be 0";
    }
    for (const App &app : identity.apps) {
        if (app.bundleId.empty() ||
            app.bundleId.find('/') != std::string::npos) {
            return "an app has no usable CFBundleIdentifier";
        }
    }
    return {};
}

} // namespace

bool parseTrust(const std::string &text, Trust &trust)
{
    const size_t colon = text.find(':');
    const std::string word = text.substr(0, colon);
    for (const TrustName &entry : kTrustNames) {
        if (word != entry.name) {
            continue;
        }
        Trust parsed{entry.mode, 0};
        if (entry.mode == TrustMode::pending) {
            if (colon == std::string::npos) {
                return false;
            }
            const char *begin = text.data() + colon + 1;
            const char *end = text.data() + text.size();
            const auto result = std::from_chars(begin, end, parsed.pending);
            if (result.ec != std::errc() || result.ptr != end) {
                return false;
            }
        } else if (colon != std::string::npos) {
            return false;
        }
        trust = parsed;
        return true;
    }
    return false;
}

std::string trustText(const Trust &trust)
{
    for (const TrustName &entry : kTrustNames) {
        if (entry.mode == trust.mode) {
            return trust.mode == TrustMode::pending
                       ? "pending:" + std::to_string(trust.pending)
                       : entry.name;
        }
    }
    return "trusted";
}

bool readFile(const std::string &path, std::string &text)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return false;
    }
    std::ostringstream content;
    content << file.rdbuf();
    text = content.str();
    return !file.bad();
}

bool writeFile(const std::string &path, const std::string &text)
{
    const std::string temporary = path + ".new";
    {
        std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
        file << text;
        file.close();
        if (!file) {
            const int error = errno;
            unlink(temporary.c_str());
            errno = error;
            return false;
        }
    }
    return rename(temporary.c_str(), path.c_str()) == 0;
}

std::string readIdentity(const std::string &folder, Identity &identity)
{
    const std::string path = folder + "/device.plist";
    std::string text;
    if (!readFile(path, text)) {
        return path + ": " + errorText(errno);
    }
    const Plist list = fromXml(text);
    if (!list || plist_get_node_type(list.get()) != PLIST_DICT) {
        return path + ": not an XML property list";
    }
    identity = Identity();
    for (const TextField &entry : kTextFields) {
        auto value = getString(list.get(), entry.key);
        if (value) {
            identity.*entry.field = *value;
        }
    }
    for (const NumberField &entry : kNumberFields) {
        auto value = getUint(list.get(), entry.key);
        if (value) {
            identity.*entry.field = *value;
        }
    }
    identity.locationId = static_cast<uint32_t>(
        getUint(list.get(), "LocationID").value_or(identity.locationId));
    identity.productId = static_cast<uint32_t>(
        getUint(list.get(), "ProductID").value_or(identity.productId));
    const auto trust = getString(list.get(), "Trust").value_or("trusted");
    if (!parseTrust(trust, identity.trust)) {
        return path + ": Trust has the unknown value \"" + trust + "\"";
    }
    plist_t apps = getNode(list.get(), "Apps", PLIST_ARRAY);
    const uint32_t count = apps != nullptr ? plist_array_get_size(apps) : 0;
    for (uint32_t i = 0; i < count; i++) {
        identity.apps.push_back(readApp(plist_array_get_item(apps, i)));
    }
    const std::string problem = checkIdentity(identity);
    return problem.empty() ? problem : path + ": " + problem;
}

std::string writeIdentity(const std::string &folder, const Identity &identity)
{
    const Plist list = newDict();
    for (const TextField &entry : kTextFields) {
        setString(list.get(), entry.key, identity.*entry.field);
    }
    for (const NumberField &entry : kNumberFields) {
        setUint(list.get(), entry.key, identity.*entry.field);
    }
    setUint(list.get(), "LocationID", identity.locationId);
    setUint(list.get(), "ProductID", identity.productId);
    setString(list.get(), "Trust", trustText(identity.trust));
    Plist apps = newArray();
    for (const App &app : identity.apps) {
        append(apps.get(), writeApp(app));
    }
    setNode(list.get(), "Apps", std::move(apps));
    const std::string path = folder + "/device.plist";
    if (!writeFile(path, toXml(list.get()))) {
        return path + ": " + errorText(errno);
    }
    return {};
}

std::string errorText(int error)
{
    return std::generic_category().message(error);
}

uint64_t roundToBlock(uint64_t size, uint64_t blockSize)
{
    return (size / blockSize + (size % blockSize != 0 ? 1 : 0)) * blockSize;
}

uint64_t measureContent(const std::string &folder, uint64_t blockSize)
{
    uint64_t total = 0;
    for (const char *part : {"/Media", "/Apps"}) {
        std::error_code error;
        fs::recursive_directory_iterator it(
            folder + part, fs::directory_options::skip_permission_denied,
            error);
        for (; !error && it != fs::recursive_directory_iterator();
             it.increment(error)) {
            std::error_code ignored;
            if (!it->is_symlink(ignored) && it->is_regular_file(ignored)) {
                const uint64_t size = it->file_size(ignored);
                total += ignored ? 0 : roundToBlock(size, blockSize);
            }
        }
    }
    return total;
}

} // namespace sim
