#include "simdevice/wire.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace sim
{

namespace
{

// What may be queued in each direction before the device stops taking more.
constexpr size_t kQueueLimit = size_t{16} * 1024 * 1024;
constexpr size_t kArrivalSize = size_t{64} * 1024;
constexpr int kSocketBuffer = 4 * 1024 * 1024;

void enlargeSocketBuffers(int fd)
{
    // As root beyond the system's limit, otherwise up to it.
    for (const int option : {SO_SNDBUFFORCE, SO_SNDBUF}) {
        if (setsockopt(fd, SOL_SOCKET, option, &kSocketBuffer,
                       sizeof kSocketBuffer) == 0) {
            break;
        }
    }
}

} // namespace

Buffer newBuffer(size_t size)
{
    return {std::shared_ptr<uint8_t[]>(new uint8_t[size]), size};
}

Buffer copyBuffer(const void *bytes, size_t size)
{
    Buffer buffer = newBuffer(size);
    if (size > 0) {
        std::memcpy(buffer.data.get(), bytes, size);
    }
    return buffer;
}

Wire::Wire(int fd, Cable &cable, std::function<void()> pulled)
    : m_fd(fd), m_cable(cable), m_pulled(std::move(pulled)), m_now(Clock::now())
{
    enlargeSocketBuffers(fd);
    if (m_cable.emulated) {
        m_reader = std::thread([this] { readerLoop(); });
        m_writer = std::thread([this] { writerLoop(); });
    }
}

Wire::~Wire()
{
    cut();
    if (m_reader.joinable()) {
        m_reader.join();
        m_writer.join();
    }
    close(m_fd);
}

void Wire::cut()
{
    {
        const std::lock_guard lock(m_mutex);
        m_cut = true;
        m_inputChanged.notify_all();
        m_outputChanged.notify_all();
    }
    shutdown(m_fd, SHUT_RDWR);
}

void Wire::wake()
{
    const std::lock_guard lock(m_mutex);
    m_outputChanged.notify_all();
}

void Wire::hold()
{
    m_heldEpoch = m_cable.stallEpoch + 1;
}

bool Wire::held() const
{
    return m_cable.stalled || m_heldEpoch == m_cable.stallEpoch + 1;
}

void Wire::touch()
{
    const std::lock_guard lock(m_mutex);
    m_now = Clock::now();
}

bool Wire::peerIsGone() const
{
    pollfd entry{m_fd, POLLRDHUP, 0};
    return poll(&entry, 1, 0) > 0 &&
           (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

// How many of `bytes` the cable still carries; pulls it out when that ends.
size_t Wire::spend(size_t bytes)
{
    int64_t left = m_cable.bytesLeft;
    while (left >= 0) {
        const auto wanted = static_cast<int64_t>(bytes);
        const int64_t allowed = std::min(left, wanted);
        if (m_cable.bytesLeft.compare_exchange_weak(left, left - allowed)) {
            return static_cast<size_t>(allowed);
        }
    }
    return bytes;
}

// ---------------------------------------------------------------------------
// Towards the device

size_t Wire::receiveDirect(uint8_t *bytes, size_t size)
{
    size_t done = 0;
    while (done < size && !isCut()) {
        const ssize_t n = recv(m_fd, bytes + done, size - done, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        const size_t carried = spend(static_cast<size_t>(n));
        done += carried;
        if (carried < static_cast<size_t>(n)) {
            m_pulled();
            break;
        }
    }
    return done;
}

Time Wire::dueAt(const Arrival &arrival, size_t position) const
{
    return arrival.begin + m_cable.toDevice.cost(position);
}

size_t Wire::receive(void *bytes, size_t size)
{
    auto *target = static_cast<uint8_t *>(bytes);
    if (!m_cable.emulated) {
        return receiveDirect(target, size);
    }
    size_t done = 0;
    std::unique_lock lock(m_mutex);
    while (done < size && !isCut()) {
        if (m_input.empty()) {
            m_inputChanged.wait(lock);
            continue;
        }
        Arrival &front = m_input.front();
        const size_t piece =
            std::min(size - done, front.buffer.size - front.taken);
        const Time due = dueAt(front, front.taken + piece);
        if (due > Clock::now()) {
            m_inputChanged.wait_until(lock, due);
            continue;
        }
        if (front.end) {
            break;
        }
        std::memcpy(target + done, front.buffer.data.get() + front.taken,
                    piece);
        done += piece;
        front.taken += piece;
        m_now = std::max(m_now, due);
        if (front.taken == front.buffer.size) {
            m_inputBytes -= front.buffer.size;
            m_input.pop_front();
            m_inputChanged.notify_all();
        }
    }
    return done;
}

bool Wire::waitInput(std::chrono::milliseconds limit)
{
    if (!m_cable.emulated) {
        pollfd entry{m_fd, POLLIN, 0};
        return poll(&entry, 1, static_cast<int>(limit.count())) > 0;
    }
    const Time end = Clock::now() + limit;
    std::unique_lock lock(m_mutex);
    while (!isCut() && Clock::now() < end) {
        if (!m_input.empty()) {
            const Time due = dueAt(m_input.front(), m_input.front().taken + 1);
            if (due <= Clock::now()) {
                return true;
            }
            m_inputChanged.wait_until(lock, std::min(due, end));
        } else {
            m_inputChanged.wait_until(lock, end);
        }
    }
    return isCut();
}

void Wire::readerLoop()
{
    Buffer space = newBuffer(kArrivalSize);
    bool ended = false;
    while (!ended) {
        {
            std::unique_lock lock(m_mutex);
            m_inputChanged.wait(
                lock, [&] { return isCut() || m_inputBytes < kQueueLimit; });
        }
        ssize_t n = 0;
        do {
            n = recv(m_fd, space.data.get(), kArrivalSize, 0);
        } while (n < 0 && errno == EINTR);
        const Time now = Clock::now();
        const size_t got = n > 0 ? static_cast<size_t>(n) : 0;
        const size_t carried = spend(got);
        Arrival arrival;
        arrival.begin = m_cable.toDevice.reserve(carried, now) + m_cable.delay;
        arrival.end = carried == 0;
        if (carried < kArrivalSize / 2) {
            arrival.buffer = copyBuffer(space.data.get(), carried);
        } else {
            arrival.buffer = {space.data, carried};
            space = newBuffer(kArrivalSize);
        }
        ended = arrival.end;
        {
            const std::lock_guard lock(m_mutex);
            m_inputBytes += carried;
            m_inputEnded = ended;
            m_input.push_back(std::move(arrival));
            m_inputChanged.notify_all();
            m_outputChanged.notify_all();
        }
        if (carried < got) {
            m_pulled();
        }
    }
}

// ---------------------------------------------------------------------------
// Towards the host

// Puts bytes on the socket. `blocked` tells that the client did not take them
// at once.
bool Wire::transmit(const uint8_t *bytes, size_t size, bool &blocked)
{
    const size_t carried = spend(size);
    size_t done = 0;
    while (done < carried) {
        const ssize_t n = ::send(m_fd, bytes + done, carried - done,
                                 MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (errno != EAGAIN && errno != EINTR) {
            return false;
        }
        blocked = true;
        pollfd entry{m_fd, POLLOUT, 0};
        poll(&entry, 1, -1);
        if (isCut()) {
            return false;
        }
    }
    if (carried < size) {
        m_pulled();
        return false;
    }
    return true;
}

// False if the client went away or the connection was cut meanwhile.
bool Wire::waitWhileHeld()
{
    std::unique_lock lock(m_mutex);
    while (held() && !isCut()) {
        // A client that gives up is noticed by looking: nobody reads here.
        m_outputChanged.wait_for(lock, std::chrono::milliseconds(20));
        if (peerIsGone()) {
            return false;
        }
    }
    return !isCut();
}

bool Wire::sendDirect(const Buffer &buffer)
{
    if (held() && !waitWhileHeld()) {
        return false;
    }
    bool blocked = false;
    return !isCut() && transmit(buffer.data.get(), buffer.size, blocked);
}

bool Wire::send(Buffer buffer)
{
    if (!m_cable.emulated) {
        return sendDirect(buffer);
    }
    std::unique_lock lock(m_mutex);
    m_outputChanged.wait(
        lock, [&] { return isCut() || m_outputBytes < kQueueLimit; });
    if (isCut()) {
        return false;
    }
    const size_t size = buffer.size;
    m_outputBytes += size;
    m_pending.push_back({std::move(buffer), 0, size, m_now});
    m_outputChanged.notify_all();
    return true;
}

// Puts the next piece on the cable.
void Wire::reserveQuantum()
{
    Segment &next = m_pending.front();
    const size_t size = std::min(next.size, m_cable.toHost.quantum());
    const Time begin =
        m_cable.toHost.reserve(size, std::max(next.ready, m_notBefore));
    m_reservedUntil = begin + m_cable.toHost.cost(size);
    m_flight.push_back(
        {next.buffer, next.offset, size, m_reservedUntil + m_cable.delay});
    next.offset += size;
    next.size -= size;
    if (next.size == 0) {
        m_pending.pop_front();
    }
}

void Wire::writerLoop()
{
    std::unique_lock lock(m_mutex);
    while (!isCut()) {
        const bool drained = m_pending.empty() && m_flight.empty();
        if (m_finishing && (drained || (held() && m_inputEnded))) {
            break;
        }
        if (drained) {
            m_outputChanged.wait(lock);
            continue;
        }
        if (held()) {
            m_outputChanged.wait_for(lock, std::chrono::milliseconds(20));
            continue;
        }
        const Time now = Clock::now();
        if (!m_pending.empty() && now >= m_reservedUntil) {
            reserveQuantum();
            continue;
        }
        if (!m_flight.empty() && m_flight.front().ready <= now) {
            const Segment segment = std::move(m_flight.front());
            m_flight.pop_front();
            lock.unlock();
            bool blocked = false;
            const bool sent =
                transmit(segment.buffer.data.get() + segment.offset,
                         segment.size, blocked);
            lock.lock();
            m_outputBytes -= segment.size;
            if (blocked) {
                m_notBefore = Clock::now();
            }
            m_outputChanged.notify_all();
            if (!sent) {
                m_cut = true;
                m_inputChanged.notify_all();
            }
            continue;
        }
        Time next = m_flight.empty() ? m_reservedUntil : m_flight.front().ready;
        if (!m_pending.empty()) {
            next = std::min(next, m_reservedUntil);
        }
        m_outputChanged.wait_until(lock, next);
    }
    lock.unlock();
    shutdown(m_fd, SHUT_RDWR);
    lock.lock();
    m_cut = true;
    m_inputChanged.notify_all();
    m_outputChanged.notify_all();
}

void Wire::finish()
{
    if (!m_cable.emulated) {
        cut();
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_finishing = true;
        m_outputChanged.notify_all();
    }
    m_writer.join();
    m_reader.join();
}

} // namespace sim
