// The line that is shown while a device's user has something to do: with the
// seconds on a terminal, once for each task elsewhere.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

#include "helper/text.h"
#include "helper/wait_for_trust.h"

namespace helper
{

class WaitingLine
{
  public:
    WaitingLine() = default;
    ~WaitingLine() { end(); }
    WaitingLine(const WaitingLine &) = delete;
    WaitingLine &operator=(const WaitingLine &) = delete;

    void show(const std::string &what, double seconds)
    {
        if (terminal) {
            fprintf(stderr, "\r\033[K%s Waiting for %s.", what.c_str(),
                    secondsText(seconds).c_str());
        } else if (what != shown) {
            fprintf(stderr, "%s\n", what.c_str());
        }
        fflush(stderr);
        shown = what;
    }
    // Leaves the line as it is, and begins the next one.
    void end()
    {
        if (terminal && !shown.empty()) {
            fprintf(stderr, "\n");
        }
        shown.clear();
    }

  private:
    bool terminal = isatty(STDERR_FILENO) == 1;
    std::string shown;
};

} // namespace helper
