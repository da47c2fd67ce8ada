// Signals that end a program, as something to be waited for.
#pragma once

#include <sys/signalfd.h>

#include <csignal>
#include <initializer_list>

#include "helper/descriptor.h"

namespace helper
{

// From its making on the signals are read here instead of ending the program;
// with the record they get their usual effect again. To be made before any
// thread is.
class Signals
{
  public:
    explicit Signals(std::initializer_list<int> numbers = {SIGINT, SIGTERM,
                                                           SIGHUP})
    {
        sigemptyset(&set);
        for (const int number : numbers) {
            sigaddset(&set, number);
        }
        pthread_sigmask(SIG_BLOCK, &set, &before);
        fd.reset(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    }
    ~Signals()
    {
        // What came meanwhile was heard.
        while (take() != 0) {}
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;

    int descriptor() const { return fd.get(); }
    // The next signal that came, 0 for none.
    int take() const
    {
        signalfd_siginfo info{};
        return read(fd.get(), &info, sizeof(info)) == sizeof(info)
                   ? static_cast<int>(info.ssi_signo)
                   : 0;
    }

  private:
    sigset_t set{};
    sigset_t before{};
    Descriptor fd;
};

} // namespace helper
