// A check that stays in release builds, for the states in which going on would
// do more harm than stopping.
#pragma once

// Logs `what` with the place and ends the process with SIGABRT.
[[noreturn]] void qnCheckFailed(const char *what, const char *file, int line);

// Stops the process when `condition` does not hold; `what` names it in the log
// and on standard error.
#define QN_CHECK(condition, what)                                              \
    ((condition) ? static_cast<void>(0)                                        \
                 : qnCheckFailed(what, __FILE__, __LINE__))
