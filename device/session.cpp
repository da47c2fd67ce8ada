// Lockdown sessions of an opened device: made, kept, replaced, and used to
// start services.
#include "device/session.h"

#include <optional>

#include "device/errors.h"
#include "device/pairing.h"
#include "device/tls.h"

namespace iusb
{

static Deadline wholeStart(const libiusb_device &device)
{
    return deadlineIn(device.context->settings.timeout_ms);
}

// ---------------------------------------------------------------------------
// The pair record

enum class Record { None, Unusable, Loaded };

static int loadRecord(libiusb_device &device, Record &found, Deadline deadline)
{
    std::optional<std::string> bytes;
    found = Record::None;
    int code = usbmuxReadPairRecord(device.entry.udid, bytes, deadline);
    if (code || !bytes)
        return code;
    auto record = parsePairRecord(*bytes);
    found = record ? Record::Loaded : Record::Unusable;
    if (!record)
        return 0;
    device.record = std::move(*record);
    if (device.record.system_buid.empty())
        return usbmuxReadBuid(device.record.system_buid, deadline);
    return 0;
}

static bool stillListed(libiusb_device &device)
{
    std::vector<UsbmuxDevice> devices;
    if (usbmuxList(devices, wholeStart(device)))
        return true;
    for (const UsbmuxDevice &entry : devices) {
        if (entry.id == device.entry.id)
            return true;
    }
    return false;
}

static int pairAndLoad(libiusb_device &device)
{
    // Keys are made on the way, which a busy machine takes its time for.
    constexpr int key_making_ms = 8000;
    int limit = device.context->settings.timeout_ms + key_making_ms;
    int code = pairDevice(device.entry.udid, device.entry.network, limit);
    if (code == LIBIUSB_ERROR_PAIRING_FAILED && !stillListed(device))
        return LIBIUSB_ERROR_LOST_CONNECTION;
    if (code)
        return code;
    Record found = Record::None;
    code = loadRecord(device, found, wholeStart(device));
    if (code)
        return code;
    return found == Record::Loaded ? 0 : LIBIUSB_ERROR_PAIRING_FAILED;
}

// ---------------------------------------------------------------------------
// The session

static int versionBeforeSession(libiusb_device &device, Deadline deadline)
{
    if (!device.values.ios_version.empty())
        return 0;
    Plist value;
    int code = lockdownValue(device.lockdown, nullptr, "ProductVersion", value,
                             deadline);
    if (code == 0)
        device.values.ios_version = textOf(value.get()).value_or("");
    // A device that does not tell is a new one.
    return device.lockdown.stream.fd.get() < 0 ? code : 0;
}

// One try with the record at hand.
static int tryNewSession(libiusb_device &device, Deadline deadline)
{
    int code = lockdownConnect(device.entry.id, device.lockdown, deadline);
    if (code == 0)
        code = versionBeforeSession(device, deadline);
    if (code == 0) {
        code = lockdownStartSession(
            device.lockdown, device.record,
            lockdownNeedsLegacyTls(device.values.ios_version), deadline);
    }
    if (code)
        device.lockdown.stream = Stream();
    return code;
}

// Makes sure that the device answers before a pairing is begun, whose waits are
// long ones.
static int probe(libiusb_device &device)
{
    Deadline deadline = wholeStart(device);
    int code = lockdownConnect(device.entry.id, device.lockdown, deadline);
    device.values.ios_version.clear();
    if (code == 0)
        code = versionBeforeSession(device, deadline);
    device.lockdown = Lockdown();
    return code;
}

int newSession(libiusb_device &device, bool may_pair)
{
    Record found = Record::None;
    int code = loadRecord(device, found, wholeStart(device));
    if (code)
        return code;
    if (found == Record::Loaded) {
        code = tryNewSession(device, wholeStart(device));
        if (code == 0 || !isStalePairing(device.lockdown.error) || !may_pair)
            return code;
    }
    if (!may_pair)
        return LIBIUSB_ERROR_LOCKDOWN;
    code = probe(device);
    // What there is would be found again instead of the new record.
    if (code == 0 && found != Record::None)
        code = usbmuxDeletePairRecord(device.entry.udid, wholeStart(device));
    if (code == 0)
        code = pairAndLoad(device);
    return code ? code : tryNewSession(device, wholeStart(device));
}

// Looks the device up again by its UDID: a replug gives it a new number, and
// perhaps a new place.
static int findAgain(libiusb_device &device, Deadline deadline)
{
    std::vector<UsbmuxDevice> devices;
    int code = usbmuxList(devices, deadline);
    if (code)
        return LIBIUSB_ERROR_LOST_CONNECTION;
    for (UsbmuxDevice &entry : devices) {
        if (entry.udid == device.entry.udid &&
            entry.network == device.entry.network) {
            device.entry = std::move(entry);
            return 0;
        }
    }
    return LIBIUSB_ERROR_LOST_CONNECTION;
}

static bool sessionAlive(libiusb_device &device)
{
    return !device.lockdown.session.empty() &&
           streamQuiet(device.lockdown.stream);
}

static int replaceSession(libiusb_device &device)
{
    device.lockdown = Lockdown();
    int code = findAgain(device, wholeStart(device));
    if (code == 0)
        code = newSession(device, false);
    return code == LIBIUSB_ERROR_NO_DEVICE ? LIBIUSB_ERROR_LOST_CONNECTION
                                           : code;
}

int liveSession(libiusb_device &device)
{
    return sessionAlive(device) ? 0 : replaceSession(device);
}

int devicePresent(libiusb_device &device, Deadline deadline)
{
    return sessionAlive(device) ? 0 : findAgain(device, deadline);
}

// ---------------------------------------------------------------------------
// Services

static int askForService(libiusb_device &device, const char *name,
                         ServicePort &service, Deadline deadline)
{
    bool reused = sessionAlive(device);
    int code = reused ? 0 : replaceSession(device);
    if (code)
        return code;
    code = lockdownStartService(device.lockdown, name, service, deadline);
    // A session that ended without our noticing says so by closing or by its
    // refusal; one that stays silent has had its time.
    bool stale = isStaleSession(device.lockdown.error) ||
                 (code == LIBIUSB_ERROR_LOST_CONNECTION && !expired(deadline));
    if (!reused || !stale)
        return code;
    code = replaceSession(device);
    return code
               ? code
               : lockdownStartService(device.lockdown, name, service, deadline);
}

int startService(libiusb_device &device, const char *name, Stream &out,
                 Deadline deadline)
{
    ServicePort service;
    int code = askForService(device, name, service, deadline);
    if (code)
        return code;
    Stream stream;
    code = usbmuxConnect(device.entry.id, service.port, stream, deadline);
    if (code == LIBIUSB_ERROR_NO_DEVICE)
        return LIBIUSB_ERROR_LOST_CONNECTION;
    if (code == 0 && service.tls) {
        code = tlsStart(stream, device.record,
                        lockdownNeedsLegacyTls(device.values.ios_version),
                        deadline);
    }
    if (code == 0)
        out = std::move(stream);
    return code;
}

} // namespace iusb
