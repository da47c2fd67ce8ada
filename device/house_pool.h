// The pool of house arrest connections of a device: one per app, few at once.
//
// Devices allow about five at a time and each costs several round trips, while
// the file system takes and gives back handles freely. So handles share them,
// and a connection stays for a while when nobody refers to it.
#pragma once

#include <memory>
#include <string>

#include "device/afc_handle.h"

namespace iusb
{

// The app's endpoint; made when it is not in the pool yet. Does not connect.
std::shared_ptr<AfcEndpoint> houseEndpoint(libiusb_device &device,
                                           const std::string &bundle_id);

// Connects an endpoint of the pool, closing the idle one that was not used for
// longest when there is no room. SERVICE_LIMIT when all are busy: a connection
// is busy while a file is open on it.
int houseConnect(AfcEndpoint &endpoint);

} // namespace iusb
