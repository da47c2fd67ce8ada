// The values that lockdown's GetValue tells.
#pragma once

#include "simdevice/plist.h"
#include "simdevice/simulator.h"

namespace sim
{

struct ValueQuery {
    std::string domain; // empty: the global one
    std::string key;    // empty: the whole domain
    bool session = false;
    bool locked = false;
    int64_t clockOffset = 0; // seconds
};

// Fills `value` and returns "", or returns an error string: "MissingValue", or
// "GetProhibited" for what is told only in a session.
const char *lookUpValue(const Device &device, const ValueQuery &query,
                        Plist &value);

} // namespace sim
