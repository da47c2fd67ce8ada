// The control socket: one command per line, one line of answer each, which
// begins with "ok" or "error".
#pragma once

#include "simdevice/simulator.h"

namespace sim
{

// Carries out one command line and returns its answer, without a newline.
std::string runControlCommand(Simulator &simulator, const std::string &text);

// Serves one client of the control socket; closes the descriptor.
void serveControlClient(Simulator &simulator, int fd);

// What the commands are, for people.
extern const char *const kControlHelp;

} // namespace sim
