#include "simdevice/lockdown_values.h"

#include <ctime>
#include <set>

#include "simdevice/keys.h"

namespace sim
{

namespace
{

// Told to anybody; everything else needs a session.
const std::set<std::string> kPublicKeys = {
    "BuildVersion",   "CPUArchitecture",   "DeviceClass",
    "DeviceName",     "DevicePublicKey",   "HardwareModel",
    "ModelNumber",    "PasswordProtected", "ProductType",
    "ProductVersion", "ProtocolVersion",   "UniqueDeviceID",
    "WiFiAddress",
};

Plist globalDomain(const Device &device, const ValueQuery &query)
{
    const Identity &identity = device.identity;
    Plist list = newDict();
    plist_t dict = list.get();
    setString(dict, "BuildVersion", identity.buildVersion);
    setString(dict, "CPUArchitecture", "arm64e");
    setString(dict, "DeviceClass", identity.deviceClass);
    setString(dict, "DeviceName", identity.name);
    setData(dict, "DevicePublicKey", publicKeyPem(identity.privateKey));
    setString(dict, "HardwareModel", identity.hardwareModel);
    setString(dict, "ModelNumber", identity.modelNumber);
    setBool(dict, "PasswordProtected", query.locked);
    setString(dict, "ProductName", "iPhone OS");
    setString(dict, "ProductType", identity.productType);
    setString(dict, "ProductVersion", identity.iosVersion);
    setString(dict, "ProtocolVersion", "2");
    setString(dict, "SerialNumber", identity.serialNumber);
    plist_dict_set_item(
        dict, "TimeIntervalSince1970",
        plist_new_real(static_cast<double>(time(nullptr) + query.clockOffset)));
    setString(dict, "TimeZone", "Europe/Berlin");
    setString(dict, "UniqueDeviceID", identity.udid);
    setString(dict, "WiFiAddress", identity.wifiAddress);
    return list;
}

Plist diskUsage(const Device &device)
{
    const uint64_t total = device.identity.capacity;
    const uint64_t available = device.space.free();
    const uint64_t system = total / 8;
    Plist list = newDict();
    setUint(list.get(), "AmountDataAvailable", available);
    setUint(list.get(), "AmountDataReserved", 0);
    setUint(list.get(), "TotalDataAvailable", available);
    setUint(list.get(), "TotalDataCapacity", total - system);
    setUint(list.get(), "TotalDiskCapacity", total);
    setUint(list.get(), "TotalSystemAvailable", 0);
    setUint(list.get(), "TotalSystemCapacity", system);
    return list;
}

void keepPublicOnly(plist_t dict)
{
    plist_dict_iter iterator = nullptr;
    std::set<std::string> secret;
    plist_dict_new_iter(dict, &iterator);
    for (;;) {
        char *key = nullptr;
        plist_t node = nullptr;
        plist_dict_next_item(dict, iterator, &key, &node);
        if (key == nullptr) {
            break;
        }
        if (!kPublicKeys.contains(key)) {
            secret.insert(key);
        }
        std::free(key);
    }
    std::free(iterator);
    for (const std::string &key : secret) {
        plist_dict_remove_item(dict, key.c_str());
    }
}

} // namespace

const char *lookUpValue(const Device &device, const ValueQuery &query,
                        Plist &value)
{
    const bool global = query.domain.empty();
    if (!global && query.domain != "com.apple.disk_usage") {
        return "MissingValue";
    }
    if (!global && !query.session) {
        return "GetProhibited";
    }
    Plist domain = global ? globalDomain(device, query) : diskUsage(device);
    if (query.key.empty()) {
        if (!query.session) {
            keepPublicOnly(domain.get());
        }
        value = std::move(domain);
        return "";
    }
    plist_t node = plist_dict_get_item(domain.get(), query.key.c_str());
    if (node == nullptr) {
        return "MissingValue";
    }
    if (!query.session && !kPublicKeys.contains(query.key)) {
        return "GetProhibited";
    }
    value = Plist(plist_copy(node));
    return "";
}

} // namespace sim
