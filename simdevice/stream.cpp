#include "simdevice/stream.h"

#include <arpa/inet.h>

#include <cstring>

namespace sim
{

namespace
{

constexpr uint32_t kMaxMessage = 1024 * 1024;

} // namespace

bool Stream::read(void *bytes, size_t size)
{
    if (m_tls) {
        const Tls::Result result = m_tls->read(bytes, size);
        if (result != Tls::Result::closed) {
            return result == Tls::Result::data;
        }
        m_tls->shutdown();
        m_tls.reset();
    }
    return m_wire.receive(bytes, size) == size;
}

bool Stream::write(const Buffer &buffer)
{
    return m_tls ? m_tls->write(buffer.data.get(), buffer.size)
                 : m_wire.send(buffer);
}

bool Stream::write(const std::string &bytes)
{
    return write(copyBuffer(bytes.data(), bytes.size()));
}

bool Stream::waitInput(std::chrono::milliseconds limit)
{
    return (m_tls && m_tls->hasPending()) || m_wire.waitInput(limit);
}

bool Stream::startTls(const TlsIdentity &identity, std::string &problem)
{
    m_tls = Tls::accept(m_wire, identity, problem);
    return m_tls != nullptr;
}

Plist readMessage(Stream &stream)
{
    uint32_t length = 0;
    if (!stream.read(&length, sizeof length)) {
        return {};
    }
    length = ntohl(length);
    if (length > kMaxMessage) {
        return {};
    }
    std::string text(length, '\0');
    if (!stream.read(text.data(), text.size())) {
        return {};
    }
    return fromXml(text);
}

std::string messageBytes(const Plist &list)
{
    const std::string text = toXml(list.get());
    const uint32_t length = htonl(static_cast<uint32_t>(text.size()));
    std::string bytes(sizeof length, '\0');
    std::memcpy(bytes.data(), &length, sizeof length);
    return bytes + text;
}

} // namespace sim
