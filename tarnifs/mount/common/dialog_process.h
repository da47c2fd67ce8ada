// The program that shows a dialog: one at a time, waited for, and ended when the
// volume goes. All functions may be called from any thread.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

// Starts a program and gives its process id, or -1.
using Spawner = pid_t (*)(const char *file, char *const *argv);

// Runs `file` with these words as its arguments to its end. Its wait status, or
// nothing when it could not be started or the volume is going.
std::optional<int> RunDialogProgram(const std::string &file, const Words &words,
                                    Spawner spawn);

// Whether hostEndDialog was called: nothing is shown any more.
bool DialogsOver();
