#include "device/stream.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "device/libiusb.h"

namespace iusb
{

Fd::~Fd()
{
    if (fd_ >= 0)
        close(fd_);
}

void SslFree::operator()(ssl_st *ssl) const
{
    SSL_free(ssl);
}

// What a failed SSL_read or SSL_write means: 0 "not now", or lost.
static ssize_t tlsOutcome(Stream &stream, int result, bool writing)
{
    switch (SSL_get_error(stream.ssl.get(), result)) {
    case SSL_ERROR_WANT_READ:
        stream.write_wants_read = writing;
        return 0;
    case SSL_ERROR_WANT_WRITE:
        stream.read_wants_write = !writing;
        return 0;
    default:
        ERR_clear_error();
        return LIBIUSB_ERROR_LOST_CONNECTION;
    }
}

static ssize_t tlsReceive(Stream &stream, const iovec *parts, int count)
{
    ssize_t total = 0;
    stream.read_wants_write = false;
    for (int i = 0; i < count; i++) {
        size_t filled = 0;
        while (filled < parts[i].iov_len) {
            size_t got = 0;
            ERR_clear_error();
            int result =
                SSL_read_ex(stream.ssl.get(),
                            static_cast<char *>(parts[i].iov_base) + filled,
                            parts[i].iov_len - filled, &got);
            if (result <= 0) {
                ssize_t outcome = tlsOutcome(stream, result, false);
                return total > 0 ? total : outcome;
            }
            filled += got;
            total += static_cast<ssize_t>(got);
        }
    }
    return total;
}

static ssize_t tlsSend(Stream &stream, const iovec *parts, int count)
{
    ssize_t total = 0;
    stream.write_wants_read = false;
    for (int i = 0; i < count; i++) {
        size_t done = 0;
        while (done < parts[i].iov_len) {
            size_t sent = 0;
            ERR_clear_error();
            int result = SSL_write_ex(
                stream.ssl.get(),
                static_cast<const char *>(parts[i].iov_base) + done,
                parts[i].iov_len - done, &sent);
            if (result <= 0) {
                ssize_t outcome = tlsOutcome(stream, result, true);
                return total > 0 ? total : outcome;
            }
            done += sent;
            total += static_cast<ssize_t>(sent);
        }
    }
    return total;
}

bool wouldBlock()
{
    // EWOULDBLOCK is the same number on every host of ours.
    static_assert(EAGAIN == EWOULDBLOCK);
    return errno == EAGAIN || errno == EINTR;
}

static ssize_t plainOutcome(ssize_t result)
{
    if (result > 0)
        return result;
    if (result < 0 && wouldBlock())
        return 0;
    return LIBIUSB_ERROR_LOST_CONNECTION;
}

ssize_t streamReceive(Stream &stream, const iovec *parts, int count)
{
    if (stream.ssl)
        return tlsReceive(stream, parts, count);
    msghdr message{};
    message.msg_iov = const_cast<iovec *>(parts);
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    return plainOutcome(recvmsg(stream.fd.get(), &message, MSG_DONTWAIT));
}

ssize_t streamSend(Stream &stream, const iovec *parts, int count)
{
    if (stream.ssl)
        return tlsSend(stream, parts, count);
    msghdr message{};
    message.msg_iov = const_cast<iovec *>(parts);
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    return plainOutcome(
        sendmsg(stream.fd.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL));
}

int streamWait(const Stream &stream, bool writing, Deadline deadline)
{
    pollfd entry{stream.fd.get(), POLLIN, 0};
    if ((writing && !stream.write_wants_read) || stream.read_wants_write)
        entry.events |= POLLOUT;
    if (poll(&entry, 1, leftMs(deadline)) < 0 && errno != EINTR)
        return LIBIUSB_ERROR_LOST_CONNECTION;
    return entry.revents & POLLNVAL ? LIBIUSB_ERROR_LOST_CONNECTION : 0;
}

using Transfer = ssize_t (*)(Stream &, const iovec *, int);

static int transferAll(Stream &stream, Transfer step, char *data, size_t length,
                       bool writing, Deadline deadline)
{
    size_t done = 0;
    while (done < length) {
        iovec part{data + done, length - done};
        ssize_t moved = step(stream, &part, 1);
        if (moved < 0)
            return static_cast<int>(moved);
        done += static_cast<size_t>(moved);
        if (moved > 0)
            continue;
        if (expired(deadline) || streamWait(stream, writing, deadline))
            return LIBIUSB_ERROR_LOST_CONNECTION;
    }
    return 0;
}

int streamSendAll(Stream &stream, const void *data, size_t length,
                  Deadline deadline)
{
    char *bytes = const_cast<char *>(static_cast<const char *>(data));
    return transferAll(stream, streamSend, bytes, length, true, deadline);
}

int streamReceiveAll(Stream &stream, void *data, size_t length,
                     Deadline deadline)
{
    return transferAll(stream, streamReceive, static_cast<char *>(data), length,
                       false, deadline);
}

bool streamQuiet(Stream &stream)
{
    if (stream.fd.get() < 0)
        return false;
    char byte = 0;
    iovec part{&byte, 1};
    return streamReceive(stream, &part, 1) == 0;
}

} // namespace iusb
