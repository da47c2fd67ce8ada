// The named pipe that file systems write their news to. It belongs to one
// program on a host; whoever owns it made it, or found it left behind, and
// removes it in the end.
#pragma once

#include <string>

#include "helper/descriptor.h"
#include "helper/messages.h"

namespace helper
{

// "/tmp/QNNOTIPIPE", which is what every file system writes to;
// QUORVEL_NOTIFY_PIPE names another, for tests that run side by side.
std::string trayPipePath();

class TrayPipe
{
  public:
    TrayPipe() = default;
    ~TrayPipe() { close(); }
    TrayPipe(const TrayPipe &) = delete;
    TrayPipe &operator=(const TrayPipe &) = delete;

    // Makes the pipe, or takes over one whose owner is gone. PipeUnusable when
    // another program owns it, or when the name is taken by something else.
    Result open(const std::string &where);

    // Non-blocking and never at its end, since it is open for writing too. -1
    // when not open.
    int descriptor() const { return pipe.get(); }

    // Removes the pipe if it is ours.
    void close();

  private:
    std::string path;
    Descriptor pipe;
};

// Whether some program owns the pipe now.
bool trayPipeOwned(const std::string &path);

} // namespace helper
