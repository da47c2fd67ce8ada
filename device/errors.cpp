#include "device/errors.h"

#include <algorithm>
#include <iterator>

#include <libimobiledevice/lockdown.h>

#include "device/libiusb.h"

namespace iusb
{

int codeOfAfcStatus(uint64_t status)
{
    switch (status) {
    case 0:
        return LIBIUSB_SUCCESS;
    case 8:
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    case 18:
        return LIBIUSB_ERROR_NO_SPACE;
    case 30:
        return LIBIUSB_ERROR_MUX;
    case 33:
        return LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY;
    default:
        return status > 98 ? LIBIUSB_ERROR_AFC_OTHER
                           : LIBIUSB_ERROR_AFC_BASE - static_cast<int>(status);
    }
}

int codeOfConnectResult(uint64_t number)
{
    switch (number) {
    case 0:
        return LIBIUSB_SUCCESS;
    case 2:
        return LIBIUSB_ERROR_NO_DEVICE;
    case 3:
        return LIBIUSB_ERROR_SERVICE_REFUSED;
    default:
        return LIBIUSB_ERROR_PROTOCOL;
    }
}

struct NamedCode {
    std::string_view name;
    int code;
};

static int lookUp(const NamedCode *begin, const NamedCode *end,
                  std::string_view name, int otherwise)
{
    const NamedCode *found = std::find_if(
        begin, end, [&](const NamedCode &entry) { return entry.name == name; });
    return found == end ? otherwise : found->code;
}

int codeOfLockdownError(std::string_view error)
{
    static constexpr NamedCode table[] = {
        {"PasswordProtected", LIBIUSB_ERROR_PASSWORD_PROTECTED},
        {"EscrowLocked", LIBIUSB_ERROR_PASSWORD_PROTECTED},
        {"UserDeniedPairing", LIBIUSB_ERROR_TRUST_DENIED},
        {"PairingDialogResponsePending", LIBIUSB_ERROR_TRUST_PENDING},
        {"InvalidService", LIBIUSB_ERROR_INVALID_SERVICE},
        {"MissingService", LIBIUSB_ERROR_INVALID_SERVICE},
        {"ServiceLimit", LIBIUSB_ERROR_SERVICE_LIMIT},
        {"ServiceProhibited", LIBIUSB_ERROR_SERVICE_REFUSED},
        {"InvalidResponse", LIBIUSB_ERROR_PROTOCOL},
        {"PairingProhibitedOverThisConnection", LIBIUSB_ERROR_PAIRING_FAILED},
        {"SavePairRecordFailed", LIBIUSB_ERROR_PAIRING_FAILED},
    };
    return lookUp(std::begin(table), std::end(table), error,
                  LIBIUSB_ERROR_LOCKDOWN);
}

bool isStalePairing(std::string_view error)
{
    return error == "InvalidHostID" || error == "MissingHostID" ||
           error == "InvalidPairRecord" || error == "MissingPairRecord";
}

bool isStaleSession(std::string_view error)
{
    return error == "SessionInactive" || error == "InvalidSessionID" ||
           error == "MissingSessionID" || error == "InvalidConnection";
}

int codeOfPairing(int lockdownd_error)
{
    switch (lockdownd_error) {
    case LOCKDOWN_E_SUCCESS:
        return LIBIUSB_SUCCESS;
    case LOCKDOWN_E_PASSWORD_PROTECTED:
        return LIBIUSB_ERROR_DEVICE_LOCKED;
    case LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING:
        return LIBIUSB_ERROR_TRUST_PENDING;
    case LOCKDOWN_E_USER_DENIED_PAIRING:
        return LIBIUSB_ERROR_TRUST_DENIED;
    case LOCKDOWN_E_MUX_ERROR:
    case LOCKDOWN_E_RECEIVE_TIMEOUT:
        return LIBIUSB_ERROR_LOST_CONNECTION;
    case LOCKDOWN_E_PLIST_ERROR:
    case LOCKDOWN_E_DICT_ERROR:
        return LIBIUSB_ERROR_PROTOCOL;
    case LOCKDOWN_E_SSL_ERROR:
        return LIBIUSB_ERROR_TLS;
    default:
        return LIBIUSB_ERROR_PAIRING_FAILED;
    }
}

int codeOfHouseArrestError(std::string_view error)
{
    static constexpr NamedCode table[] = {
        {"ApplicationLookupFailed", LIBIUSB_ERROR_APP_LOOKUP_FAILED},
        {"InstallationLookupFailed", LIBIUSB_ERROR_APP_ACCESS_DENIED},
    };
    return lookUp(std::begin(table), std::end(table), error,
                  LIBIUSB_ERROR_INSTPROXY);
}

} // namespace iusb

const char *libiusb_strerror(int code)
{
    static constexpr struct {
        int code;
        const char *text;
    } table[] = {
        {LIBIUSB_SUCCESS, "success"},
        {LIBIUSB_ERROR_NO_DEVICE, "no such device"},
        {LIBIUSB_ERROR_MUX, "transfer broke off"},
        {LIBIUSB_ERROR_LOST_CONNECTION, "lost connection"},
        {LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY, "folder not empty"},
        {LIBIUSB_ERROR_DEVICE_LOCKED, "device locked and not paired"},
        {LIBIUSB_ERROR_TRUST_PENDING, "waiting for the trust prompt"},
        {LIBIUSB_ERROR_NO_SPACE, "no space left on the device"},
        {LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND, "no such file or folder"},
        {LIBIUSB_ERROR_AFC_UNKNOWN, "unspecified error on the device"},
        {LIBIUSB_ERROR_AFC_OP_HEADER_INVALID, "invalid request header"},
        {LIBIUSB_ERROR_AFC_NO_RESOURCES, "too many open files on the device"},
        {LIBIUSB_ERROR_AFC_READ, "read error, or not a folder"},
        {LIBIUSB_ERROR_AFC_WRITE, "write error"},
        {LIBIUSB_ERROR_AFC_UNKNOWN_PACKET, "unknown request"},
        {LIBIUSB_ERROR_AFC_INVALID_ARG, "invalid argument on the device"},
        {LIBIUSB_ERROR_AFC_OBJECT_IS_DIR, "is a folder"},
        {LIBIUSB_ERROR_AFC_PERM_DENIED, "permission denied"},
        {LIBIUSB_ERROR_AFC_SERVICE_NOT_CONNECTED, "service not connected"},
        {LIBIUSB_ERROR_AFC_OP_TIMEOUT, "operation timed out on the device"},
        {LIBIUSB_ERROR_AFC_TOO_MUCH_DATA, "too much data"},
        {LIBIUSB_ERROR_AFC_END_OF_DATA, "end of data"},
        {LIBIUSB_ERROR_AFC_OP_NOT_SUPPORTED, "operation not supported"},
        {LIBIUSB_ERROR_AFC_OBJECT_EXISTS, "exists already"},
        {LIBIUSB_ERROR_AFC_OBJECT_BUSY, "busy"},
        {LIBIUSB_ERROR_AFC_WOULD_BLOCK, "operation would block"},
        {LIBIUSB_ERROR_AFC_IO, "input/output error on the device"},
        {LIBIUSB_ERROR_AFC_INTERRUPTED, "operation interrupted"},
        {LIBIUSB_ERROR_AFC_IN_PROGRESS, "operation in progress"},
        {LIBIUSB_ERROR_AFC_INTERNAL, "internal error on the device"},
        {LIBIUSB_ERROR_AFC_OTHER, "unknown status from the device"},
        {LIBIUSB_ERROR_INVALID_ARG, "invalid argument"},
        {LIBIUSB_ERROR_NO_MEMORY, "out of memory"},
        {LIBIUSB_ERROR_NO_DAEMON, "usbmux daemon not reachable"},
        {LIBIUSB_ERROR_PROTOCOL, "answer makes no sense"},
        {LIBIUSB_ERROR_TRUST_DENIED, "trust denied on the device"},
        {LIBIUSB_ERROR_PAIRING_FAILED, "pairing failed"},
        {LIBIUSB_ERROR_LOCKDOWN, "refused by the device"},
        {LIBIUSB_ERROR_PASSWORD_PROTECTED, "device locked"},
        {LIBIUSB_ERROR_TLS, "encryption failed"},
        {LIBIUSB_ERROR_INVALID_SERVICE, "no such service"},
        {LIBIUSB_ERROR_SERVICE_LIMIT, "too many service connections"},
        {LIBIUSB_ERROR_SERVICE_REFUSED, "service refused"},
        {LIBIUSB_ERROR_APP_LOOKUP_FAILED, "no such app"},
        {LIBIUSB_ERROR_APP_ACCESS_DENIED, "app does not share documents"},
        {LIBIUSB_ERROR_INSTPROXY, "app service refused"},
    };
    for (const auto &entry : table) {
        if (entry.code == code)
            return entry.text;
    }
    return "unknown error";
}
