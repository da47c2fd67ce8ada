// From the numbers and words of usbmux, lockdown and AFC to LIBIUSB_ERROR_*.
#pragma once

#include <cstdint>
#include <string_view>

namespace iusb
{

// An AFC status; 0 is success.
int codeOfAfcStatus(uint64_t status);

// The "Number" of a usbmux Result that answers Connect; 0 is success.
int codeOfConnectResult(uint64_t number);

// The "Error" text of a lockdown reply.
int codeOfLockdownError(std::string_view error);

// True for the lockdown errors that say "this host is not (or no longer)
// paired".
bool isStalePairing(std::string_view error);

// True for the lockdown errors that say "there is no such session any more".
bool isStaleSession(std::string_view error);

// A lockdownd_error_t of libimobiledevice's pairing; 0 is success.
int codeOfPairing(int lockdownd_error);

// The "Error" text of a house arrest reply.
int codeOfHouseArrestError(std::string_view error);

} // namespace iusb
