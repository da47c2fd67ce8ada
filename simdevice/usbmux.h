// The usbmux daemon: device list, events, pair records, connections to ports.
#pragma once

#include "simdevice/simulator.h"

namespace sim
{

// Serves one client of the usbmux socket to its end; closes the descriptor.
void serveUsbmuxClient(Simulator &simulator, int fd);

// Tells the listeners. Called with Simulator::mutex held.
void announceAttached(Simulator &simulator, const Device &device, bool wifi);
void announceDetached(Simulator &simulator, uint32_t deviceId);

} // namespace sim
