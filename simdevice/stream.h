// What a service reads and writes: a wire, with or without TLS around it.
#pragma once

#include <memory>
#include <string>

#include "simdevice/plist.h"
#include "simdevice/tls.h"
#include "simdevice/wire.h"

namespace sim
{

class Stream
{
  public:
    explicit Stream(Wire &wire) : m_wire(wire) {}

    // All of `size` bytes, or false. A client that ends TLS goes on in the
    // clear on the same connection.
    bool read(void *bytes, size_t size);
    bool write(const Buffer &buffer);
    bool write(const std::string &bytes);

    // True if there is more to read, or the end, within the time.
    bool waitInput(std::chrono::milliseconds limit);

    // Becomes TLS, beginning with the client's handshake.
    bool startTls(const TlsIdentity &identity, std::string &problem);

    Wire &wire() { return m_wire; }

  private:
    Wire &m_wire;
    std::unique_ptr<Tls> m_tls;
};

// Messages of lockdown and the services that talk in property lists: the
// length as four bytes, most significant first, and an XML list.

// Null at the end of the stream, and for anything that is no such message.
Plist readMessage(Stream &stream);

// The bytes of a message.
std::string messageBytes(const Plist &list);

} // namespace sim
