// One device while it is watched. Mounting and unmounting are done by other
// processes of this program, so that a device that waits for its user, or is
// silent, holds up nobody else.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "helper/descriptor.h"
#include "helper/devices.h"
#include "helper/process.h"

namespace helper
{

// Another process of this program whose output is read line by line.
class Worker
{
  public:
    // Starts it with these words; false when it could not be started.
    bool start(const Words &words);
    ~Worker();
    Worker() = default;
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    bool running() const { return pid > 0; }
    int descriptor() const { return output.get(); }
    // The next whole line of its output that has come.
    std::optional<std::string> line();
    // Its exit status once it has ended and its output is read.
    std::optional<int> ended();
    void stop() const;

  private:
    void fetch();

    pid_t pid = -1;
    Descriptor output;
    std::string text;
    bool closed = true;
};

struct WatchedDevice {
    Device device;
    bool attached = true;
    bool tried = false; // mounting, since it was plugged in
    bool ours = false;  // its volume was mounted by this watch
    bool died = false;  // its file system has, and is being cleared away
    int deaths = 0;     // since it was plugged in
    std::string point;  // "" while not mounted
    std::string state;  // what there is to be shown of it
    Worker worker;
};

} // namespace helper
