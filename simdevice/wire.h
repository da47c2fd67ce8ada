// One client connection after usbmux has connected it to a device port: a byte
// stream over the emulated cable.
//
// Without emulation a wire is the socket itself. With emulation two threads
// stand between the socket and the one that serves the connection: a reader
// that takes arriving bytes off the socket at once and notes when each reaches
// the device, and a writer that sends what was answered when the cable has
// carried it. Several MiB may be under way in each direction.
//
// receive(), send() and waitInput() belong to the serving thread; cut() and
// wake() may be called by any thread, and end or re-examine every wait.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "simdevice/link.h"

namespace sim
{

// A piece of memory that is handed from thread to thread without a copy.
struct Buffer {
    std::shared_ptr<uint8_t[]> data;
    size_t size = 0;
};

Buffer newBuffer(size_t size);
Buffer copyBuffer(const void *bytes, size_t size);

class Wire
{
  public:
    // Takes over the descriptor. `pulled` is called (by any of the wire's
    // threads, without a lock) when the cable's byte budget is used up.
    Wire(int fd, Cable &cable, std::function<void()> pulled);
    ~Wire();
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    // Fills `size` bytes; returns how many there were before the end.
    size_t receive(void *bytes, size_t size);

    // True if bytes or the end of the stream are there within the time.
    bool waitInput(std::chrono::milliseconds limit);

    // Sends, or queues for sending. False if the connection is gone.
    bool send(Buffer buffer);

    // From now on this connection's answers are kept back until the next
    // stall of the device ends.
    void hold();

    // Something happened that is not the client's doing (a delay): what is sent
    // from now on is ready now, not when the last request came.
    void touch();

    // Ends the connection at once; what is under way is lost.
    void cut();

    // Ends the connection when everything that was sent has left.
    void finish();

    // Looks again whether a stall has ended.
    void wake();

  private:
    struct Arrival {
        Buffer buffer;
        size_t taken = 0;
        Time begin{}; // of the first byte's transfer, as seen by the device
        bool end = false;
    };
    struct Segment {
        Buffer buffer; // keeps the memory alive
        size_t offset = 0;
        size_t size = 0;
        Time ready{}; // pending: when the device had it; in flight: when due
    };

    bool isCut() const { return m_cut.load(std::memory_order_relaxed); }
    bool held() const;
    size_t receiveDirect(uint8_t *bytes, size_t size);
    bool sendDirect(const Buffer &buffer);
    bool waitWhileHeld();
    Time dueAt(const Arrival &arrival, size_t position) const;
    void readerLoop();
    void writerLoop();
    void reserveQuantum();
    bool transmit(const uint8_t *bytes, size_t size, bool &blocked);
    size_t spend(size_t bytes);
    bool peerIsGone() const;

    int m_fd;
    Cable &m_cable;
    std::function<void()> m_pulled;
    std::atomic<bool> m_cut{false};
    std::atomic<uint64_t> m_heldEpoch{0}; // epoch + 1 of the hold; 0: none

    std::mutex m_mutex; // guards everything below
    std::condition_variable m_inputChanged;
    std::condition_variable m_outputChanged;
    std::deque<Arrival> m_input;
    size_t m_inputBytes = 0;
    std::deque<Segment> m_pending; // answered, not yet on the cable
    std::deque<Segment> m_flight;  // on the cable
    size_t m_outputBytes = 0;
    Time m_now{};       // the device's time: when the last byte read reached it
    Time m_notBefore{}; // after the client did not take data: no catching up
    Time m_reservedUntil{};
    bool m_finishing = false;
    bool m_inputEnded = false;

    std::thread m_reader;
    std::thread m_writer;
};

} // namespace sim
