// Notifications on the desktop, where there is one.
#pragma once

#include <memory>
#include <string>

namespace helper
{

// One at a time, by a thread of their own: a desktop that does not answer holds
// nothing else up. To be made after the signals are blocked, since the library
// starts threads as well.
class Notifier
{
  public:
    Notifier();
    // Waits until everything is shown, a second at most.
    ~Notifier();
    Notifier(const Notifier &) = delete;
    Notifier &operator=(const Notifier &) = delete;

    // Shows a notification and does not wait; it takes the place of the last one
    // about the same thing. Without a desktop nothing happens.
    void show(const std::string &about, const std::string &title,
              const std::string &text);

  private:
    struct Queue;
    std::shared_ptr<Queue> queue; // the thread may outlive this record
    bool started = false;
};

} // namespace helper
