#include "device/lockdown.h"

#include <cstdlib>

#include "device/errors.h"
#include "device/libiusb.h"
#include "device/plist_stream.h"
#include "device/tls.h"
#include "device/usbmux.h"

namespace iusb
{

constexpr uint16_t kLockdownPort = 62078;

int lockdownConnect(uint32_t usbmux_id, Lockdown &out, Deadline deadline)
{
    out = Lockdown();
    return usbmuxConnect(usbmux_id, kLockdownPort, out.stream, deadline);
}

static Plist newRequest(const char *name)
{
    Plist request = makeDict();
    setString(request, "Label", "quorvelfs");
    setString(request, "Request", name);
    return request;
}

// Every answer repeats the request's name and holds an "Error" when it is a
// refusal; devices before iOS 5 say "Result" instead.
static int exchange(Lockdown &lockdown, const char *name, const Plist &request,
                    Plist &reply, Deadline deadline)
{
    lockdown.error.clear();
    int code = plistSend(lockdown.stream, request, deadline);
    if (code == 0)
        code = plistReceive(lockdown.stream, reply, deadline);
    if (code == 0 && getString(reply.get(), "Request") != name)
        code = LIBIUSB_ERROR_PROTOCOL;
    if (code) {
        lockdown.stream = Stream();
        return code;
    }
    lockdown.error = getString(reply.get(), "Error").value_or("");
    if (lockdown.error.empty() && getString(reply.get(), "Result") == "Failure")
        lockdown.error = "Failure";
    return lockdown.error.empty() ? 0 : codeOfLockdownError(lockdown.error);
}

int lockdownValue(Lockdown &lockdown, const char *domain, const char *key,
                  Plist &value, Deadline deadline)
{
    Plist request = newRequest("GetValue");
    Plist reply;
    if (domain)
        setString(request, "Domain", domain);
    if (key)
        setString(request, "Key", key);
    int code = exchange(lockdown, "GetValue", request, reply, deadline);
    if (code)
        return code;
    plist_t found = plist_dict_get_item(reply.get(), "Value");
    if (!found)
        return LIBIUSB_ERROR_PROTOCOL;
    value.reset(plist_copy(found));
    return 0;
}

int lockdownStartSession(Lockdown &lockdown, const PairRecord &record,
                         bool legacy_tls, Deadline deadline)
{
    Plist request = newRequest("StartSession");
    Plist reply;
    setString(request, "HostID", record.host_id);
    setString(request, "SystemBUID", record.system_buid);
    int code = exchange(lockdown, "StartSession", request, reply, deadline);
    if (code)
        return code;
    auto session = getString(reply.get(), "SessionID");
    if (!session || session->empty()) {
        lockdown.stream = Stream();
        return LIBIUSB_ERROR_PROTOCOL;
    }
    if (getTruth(reply.get(), "EnableSessionSSL")) {
        code = tlsStart(lockdown.stream, record, legacy_tls, deadline);
        if (code) {
            lockdown.stream = Stream();
            return code;
        }
    }
    lockdown.session = *session;
    return 0;
}

void lockdownStopSession(Lockdown &lockdown)
{
    if (lockdown.session.empty() || lockdown.stream.fd.get() < 0)
        return;
    Plist request = newRequest("StopSession");
    setString(request, "SessionID", lockdown.session);
    plistSend(lockdown.stream, request, deadlineIn(0));
    lockdown.session.clear();
}

int lockdownStartService(Lockdown &lockdown, const char *name,
                         ServicePort &service, Deadline deadline)
{
    Plist request = newRequest("StartService");
    Plist reply;
    setString(request, "Service", name);
    int code = exchange(lockdown, "StartService", request, reply, deadline);
    if (code)
        return code;
    auto port = getUint(reply.get(), "Port");
    if (!port || *port == 0 || *port > 65535)
        return LIBIUSB_ERROR_PROTOCOL;
    service.port = static_cast<uint16_t>(*port);
    service.tls = getTruth(reply.get(), "EnableServiceSSL");
    return 0;
}

bool lockdownNeedsLegacyTls(const std::string &product_version)
{
    long major = strtol(product_version.c_str(), nullptr, 10);
    return major > 0 && major < 10;
}

} // namespace iusb
