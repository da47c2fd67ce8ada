// The exchange that turns a house arrest connection into an AFC connection to
// one app's documents.
#pragma once

#include <string>

#include "device/stream.h"

namespace iusb
{

// Asks for the app's documents (VendDocuments). APP_LOOKUP_FAILED or
// APP_ACCESS_DENIED when the device refuses; the stream is of no use then.
int vendDocuments(Stream &stream, const std::string &bundle_id,
                  Deadline deadline);

} // namespace iusb
