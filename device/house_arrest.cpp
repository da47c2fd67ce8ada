#include "device/house_arrest.h"

#include "device/errors.h"
#include "device/libiusb.h"
#include "device/plist_stream.h"

namespace iusb
{

int vendDocuments(Stream &stream, const std::string &bundle_id,
                  Deadline deadline)
{
    Plist request = makeDict();
    setString(request, "Command", "VendDocuments");
    setString(request, "Identifier", bundle_id);
    Plist reply;
    int code = plistSend(stream, request, deadline);
    if (code == 0)
        code = plistReceive(stream, reply, deadline);
    if (code) {
        return code == LIBIUSB_ERROR_PROTOCOL ? LIBIUSB_ERROR_LOST_CONNECTION
                                              : code;
    }
    if (auto error = getString(reply.get(), "Error"))
        return codeOfHouseArrestError(*error);
    return getString(reply.get(), "Status") == "Complete"
               ? 0
               : LIBIUSB_ERROR_INSTPROXY;
}

} // namespace iusb
