// A byte stream to the usbmux daemon or, through it, to a service on a device:
// a non-blocking socket, in clear or under TLS.
//
// One thread drives a stream. Nothing here waits without a deadline, raises
// SIGPIPE or uses select(2), so that large descriptor numbers are safe.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <memory>
#include <utility>

#include "device/deadline.h"

struct ssl_st;

namespace iusb
{

// Owns a descriptor.
class Fd
{
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd &operator=(Fd &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd();
    int get() const { return fd_; }

  private:
    int fd_ = -1;
};

struct SslFree {
    void operator()(ssl_st *ssl) const;
};

struct Stream {
    Fd fd;
    std::unique_ptr<ssl_st, SslFree> ssl; // null: in clear. Destroyed first.
    // TLS may have to read before it can go on writing, and the reverse.
    bool write_wants_read = false;
    bool read_wants_write = false;
};

// True when errno after a failed socket call means "not now".
bool wouldBlock();

// Takes what is there, up to the total size of the parts: the number of bytes,
// 0 when nothing is there now, LOST_CONNECTION at the end or after an error.
ssize_t streamReceive(Stream &stream, const iovec *parts, int count);

// Gives away what the stream takes now: the number of bytes, 0 when it takes
// none, LOST_CONNECTION after an error.
ssize_t streamSend(Stream &stream, const iovec *parts, int count);

// Waits until bytes can be read (or, with `writing`, also until some can be
// written). Success also when the deadline passes: the caller looks at it.
// LOST_CONNECTION only for an unusable descriptor.
int streamWait(const Stream &stream, bool writing, Deadline deadline);

// Sends or receives exactly `length` bytes. LOST_CONNECTION when the stream
// ends or the deadline passes first; the stream is of no use then.
int streamSendAll(Stream &stream, const void *data, size_t length,
                  Deadline deadline);
int streamReceiveAll(Stream &stream, void *data, size_t length,
                     Deadline deadline);

// True when the stream is open and silent, as one between two exchanges is.
bool streamQuiet(Stream &stream);

} // namespace iusb
