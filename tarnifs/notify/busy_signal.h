// The tray helper's busy indication for the length of a scope.
#pragma once

// Says "busy" from begin() to its own end; nothing when it never began. So every
// way out of an operation ends what it announced.
class BusySignal
{
  public:
    BusySignal() = default;
    ~BusySignal();
    BusySignal(const BusySignal &) = delete;
    BusySignal &operator=(const BusySignal &) = delete;
    void begin();

  private:
    bool on = false;
};
