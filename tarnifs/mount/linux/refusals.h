// Why a volume can't be mounted, in one sentence and an exit status: what can be
// seen before it is tried, and what libfuse and fusermount3 say afterwards.
#pragma once

#include <string>

#include "tarnifs/mount/exit_status.h"

struct Refusal {
    ExitStatus status = ExitStatus::Ok;
    std::string sentence; // without the program's name and without a newline
};

// Whether a volume can be mounted at `path`: a folder that carries no volume of
// ours and no remains of one.
Refusal CheckMountPoint(const std::string &path);

// Whether this machine has what mounting needs.
Refusal CheckFuse();

// The cause of a failed mount. `said` is what libfuse and fusermount3 wrote;
// `confined`: AppArmor may have forbidden it to fusermount3.
Refusal ExplainMount(const std::string &path, const std::string &said,
                     bool confined);

// Whether an AppArmor profile of fusermount3 is there.
bool FusermountConfined();
