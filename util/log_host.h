// What the host tells the log. log_host_linux.cpp and log_host_macos.cpp each
// implement it.
#pragma once

#include <cstdint>
#include <string>

// The threshold that is set up, or `otherwise` when there is none, or none that
// is a number.
int32_t LogHostLevel(int32_t otherwise);

// The user's own folder for logs, for those who can't write to /var/log. Empty
// when nothing tells it.
std::string LogHostFolder();
