// The installed apps, as the installation proxy tells them in chunks.
#pragma once

#include <string>
#include <vector>

#include "device/plist_tools.h"

namespace iusb
{

struct App {
    std::string name;
    std::string bundle_id;
};

// The request for the apps that a user installed, with the few attributes that
// matter: without them a device sends everything it knows, slowly.
Plist appListRequest();

// Adds the apps of one message that share their documents. Sets `complete` on
// the last message. A negative result: the device refused, or the message makes
// no sense.
int takeApps(const Plist &message, std::vector<App> &apps, bool &complete);

} // namespace iusb
