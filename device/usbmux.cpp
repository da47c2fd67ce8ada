#include "device/usbmux.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "device/errors.h"
#include "device/libiusb.h"

namespace iusb
{

static const char *const kStandardSocket = "/var/run/usbmuxd";
static constexpr int kSocketBuffer = 512 << 10;

static bool isPort(std::string_view text)
{
    if (text.empty() || text.size() > 5)
        return false;
    unsigned value = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    return value >= 1 && value <= 65535;
}

UsbmuxAddress usbmuxAddress(const char *text)
{
    UsbmuxAddress standard{kStandardSocket, {}, {}};
    if (!text)
        return standard;
    std::string_view address(text);
    if (address.substr(0, 5) == "UNIX:") {
        return address.size() > 5
                   ? UsbmuxAddress{std::string(address.substr(5)), {}, {}}
                   : standard;
    }
    size_t colon = address.rfind(':');
    if (colon == address.npos || colon == 0 ||
        !isPort(address.substr(colon + 1)))
        return standard;
    std::string_view host = address.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    return {{}, std::string(host), std::string(address.substr(colon + 1))};
}

// ---------------------------------------------------------------------------
// The socket

static Fd newSocket(int family)
{
    Fd fd(socket(family, SOCK_STREAM, 0));
    if (fd.get() < 0)
        return fd;
    fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
    fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUF, &kSocketBuffer,
               sizeof kSocketBuffer);
    setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &kSocketBuffer,
               sizeof kSocketBuffer);
#ifdef SO_NOSIGPIPE
    int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    return fd;
}

// Connects, waiting as long as the deadline allows: a TCP connection is made in
// the background, and a unix socket whose queue is full says EAGAIN.
static bool connectBy(int fd, const sockaddr *address, socklen_t size,
                      Deadline deadline)
{
    for (;;) {
        if (connect(fd, address, size) == 0 || errno == EISCONN)
            return true;
        if (errno == EAGAIN) {
            if (expired(deadline))
                return false;
            poll(nullptr, 0, 5);
        } else if (errno == EINPROGRESS || errno == EINTR ||
                   errno == EALREADY) {
            pollfd entry{fd, POLLOUT, 0};
            if (poll(&entry, 1, leftMs(deadline)) == 0)
                return false;
        } else {
            return false;
        }
    }
}

static Fd connectUnix(const std::string &path, Deadline deadline)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return Fd();
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    Fd fd = newSocket(AF_UNIX);
    if (fd.get() < 0 ||
        !connectBy(fd.get(), reinterpret_cast<const sockaddr *>(&address),
                   sizeof address, deadline))
        return Fd();
    return fd;
}

static Fd connectTcp(const UsbmuxAddress &where, Deadline deadline)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(where.host.c_str(), where.port.c_str(), &hints, &found))
        return Fd();
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found,
                                                             freeaddrinfo);
    for (const addrinfo *at = found; at; at = at->ai_next) {
        Fd fd = newSocket(at->ai_family);
        if (fd.get() < 0)
            continue;
        int on = 1;
        setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (connectBy(fd.get(), at->ai_addr, at->ai_addrlen, deadline))
            return fd;
    }
    return Fd();
}

static Fd connectDaemon(Deadline deadline)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
    UsbmuxAddress where = usbmuxAddress(getenv("USBMUXD_SOCKET_ADDRESS"));
    return where.path.empty() ? connectTcp(where, deadline)
                              : connectUnix(where.path, deadline);
}

// ---------------------------------------------------------------------------
// One exchange

// Reads exactly one message and not a byte more: after a Connect the next byte
// belongs to the device.
static int receiveMessage(Stream &stream, Plist &message, Deadline deadline)
{
    char header[kUsbmuxHeaderSize];
    if (streamReceiveAll(stream, header, sizeof header, deadline)) {
        return expired(deadline) ? LIBIUSB_ERROR_NO_DAEMON
                                 : LIBIUSB_ERROR_PROTOCOL;
    }
    auto size = usbmuxPayloadSize({header, sizeof header});
    if (!size)
        return LIBIUSB_ERROR_PROTOCOL;
    std::string payload(*size, '\0');
    if (streamReceiveAll(stream, payload.data(), payload.size(), deadline))
        return LIBIUSB_ERROR_PROTOCOL;
    message = parsePlist(payload);
    return message ? 0 : LIBIUSB_ERROR_PROTOCOL;
}

static int exchange(const Plist &request, Plist &reply, Stream &stream,
                    Deadline deadline)
{
    static std::atomic<uint32_t> last_tag{0};
    deadline = sooner(deadline, kUsbmuxLimitMs);
    stream.fd = connectDaemon(deadline);
    if (stream.fd.get() < 0)
        return LIBIUSB_ERROR_NO_DAEMON;
    std::string bytes = usbmuxEncode(request, ++last_tag);
    if (streamSendAll(stream, bytes.data(), bytes.size(), deadline))
        return LIBIUSB_ERROR_NO_DAEMON;
    return receiveMessage(stream, reply, deadline);
}

int usbmuxList(std::vector<UsbmuxDevice> &devices, Deadline deadline)
{
    Stream stream;
    Plist reply;
    devices.clear();
    int code = exchange(usbmuxRequest("ListDevices"), reply, stream, deadline);
    if (code)
        return code;
    auto list = usbmuxDevices(reply);
    if (!list)
        return LIBIUSB_ERROR_PROTOCOL;
    devices = std::move(*list);
    return 0;
}

int usbmuxConnect(uint32_t device_id, uint16_t port, Stream &out,
                  Deadline deadline)
{
    Plist request = usbmuxRequest("Connect");
    setUint(request, "DeviceID", device_id);
    setUint(request, "PortNumber", htons(port));
    Stream stream;
    Plist reply;
    int code = exchange(request, reply, stream, deadline);
    if (code)
        return code;
    auto number = usbmuxResultNumber(reply);
    if (!number)
        return LIBIUSB_ERROR_PROTOCOL;
    if (*number == 0)
        out = std::move(stream);
    return codeOfConnectResult(*number);
}

// A request about one device's pair record.
static int askPairRecord(const char *type, const std::string &udid,
                         Plist &reply, Deadline deadline)
{
    Plist request = usbmuxRequest(type);
    setString(request, "PairRecordID", udid);
    Stream stream;
    return exchange(request, reply, stream, deadline);
}

int usbmuxReadPairRecord(const std::string &udid,
                         std::optional<std::string> &record, Deadline deadline)
{
    Plist reply;
    record.reset();
    int code = askPairRecord("ReadPairRecord", udid, reply, deadline);
    if (code)
        return code;
    record = getData(reply.get(), "PairRecordData");
    auto number = usbmuxResultNumber(reply);
    return record || (number && *number != 0) ? 0 : LIBIUSB_ERROR_PROTOCOL;
}

int usbmuxDeletePairRecord(const std::string &udid, Deadline deadline)
{
    constexpr uint64_t no_entry = 2;
    Plist reply;
    int code = askPairRecord("DeletePairRecord", udid, reply, deadline);
    if (code)
        return code;
    auto number = usbmuxResultNumber(reply);
    if (!number)
        return LIBIUSB_ERROR_PROTOCOL;
    return *number == 0 || *number == no_entry ? 0
                                               : LIBIUSB_ERROR_PAIRING_FAILED;
}

int usbmuxReadBuid(std::string &buid, Deadline deadline)
{
    Stream stream;
    Plist reply;
    int code = exchange(usbmuxRequest("ReadBUID"), reply, stream, deadline);
    if (code)
        return code;
    auto text = getString(reply.get(), "BUID");
    if (!text)
        return LIBIUSB_ERROR_PROTOCOL;
    buid = *text;
    return 0;
}

} // namespace iusb
