#include "device/app_list.h"

#include "device/libiusb.h"

namespace iusb
{

constexpr size_t kMostApps = 100'000;

Plist appListRequest()
{
    plist_t attributes = plist_new_array();
    for (const char *key : {"CFBundleIdentifier", "CFBundleDisplayName",
                            "CFBundleName", "UIFileSharingEnabled"})
        plist_array_append_item(attributes, plist_new_string(key));
    Plist options = makeDict();
    setString(options, "ApplicationType", "User");
    plist_dict_set_item(options.get(), "ReturnAttributes", attributes);
    Plist request = makeDict();
    setString(request, "Command", "Browse");
    plist_dict_set_item(request.get(), "ClientOptions", options.release());
    return request;
}

static void takeApp(plist_t entry, std::vector<App> &apps)
{
    auto bundle_id = getString(entry, "CFBundleIdentifier");
    if (!bundle_id || bundle_id->empty() ||
        !getTruth(entry, "UIFileSharingEnabled"))
        return;
    std::string name;
    for (const char *key : {"CFBundleDisplayName", "CFBundleName"}) {
        if (name.empty())
            name = getString(entry, key).value_or("");
    }
    apps.push_back({name.empty() ? *bundle_id : name, *bundle_id});
}

int takeApps(const Plist &message, std::vector<App> &apps, bool &complete)
{
    complete = false;
    if (getString(message.get(), "Error"))
        return LIBIUSB_ERROR_INSTPROXY;
    auto status = getString(message.get(), "Status");
    if (status == "Complete") {
        complete = true;
        return 0;
    }
    plist_t list = getMember(message.get(), "CurrentList", PLIST_ARRAY);
    if (!status)
        return LIBIUSB_ERROR_PROTOCOL;
    uint32_t count = list ? plist_array_get_size(list) : 0;
    if (count > kMostApps - apps.size())
        return LIBIUSB_ERROR_PROTOCOL;
    for (uint32_t i = 0; i < count; i++)
        takeApp(plist_array_get_item(list, i), apps);
    return 0;
}

} // namespace iusb
