// The program's two long-running faces: serving devices, and sending a command
// to a simulator that serves.
#pragma once

#include <string>

#include "simdevice/simulator.h"

namespace sim
{

// Serves until SIGINT, SIGTERM or the control command "quit"; prints "ready" on
// standard output when the sockets listen. Returns an exit status; what is
// wrong goes to standard error.
int runSimulator(const RunOptions &options);

// Sends one command to the control socket and prints the answer. 0 if it
// begins with "ok", else 1.
int sendControlCommand(const std::string &path, const std::string &line);

} // namespace sim
