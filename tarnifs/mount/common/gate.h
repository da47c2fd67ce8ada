// The binding's own lock. Every adapter that resolves a path, or that touches
// what the binding remembers, holds it from its first look to its last call, so
// that a path resolved at the beginning still names the same record when the
// handler runs. Handlers run one at a time anyway: nothing is lost by it.
//
// Order: the gate first, tarni_mutex (which the handlers take themselves) second.
#pragma once

#include <mutex>

// Holds the gate for a scope.
class [[nodiscard]] Gate
{
  public:
    Gate() : held(mutex) {}

  private:
    inline static std::mutex mutex;
    const std::lock_guard<std::mutex> held;
};
