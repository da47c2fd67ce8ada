// Why a mount is refused: one sentence, and the status that goes with it.
#include "tarnifs/mount/linux/refusals.h"

#include <gtest/gtest.h>

namespace
{

TEST(Refusals, WhatFusermountSaysIsExplained)
{
    const struct {
        const char *said;
        bool confined;
        ExitStatus status;
        const char *told;
    } cases[] = {
        {"fusermount3: option allow_other only allowed if 'user_allow_other' "
         "is set in /etc/fuse.conf\n",
         true, ExitStatus::NotAllowed, "the line user_allow_other in"},
        {"fusermount3: user has no write access to mountpoint /x\n", true,
         ExitStatus::NotAllowed, "folders of your own"},
        {"fusermount3: mount failed: Permission denied\n", true,
         ExitStatus::NotAllowed, "AppArmor profile of fusermount3"},
        {"fusermount3: mount failed: Permission denied\n", false,
         ExitStatus::NotAllowed, "this container (fusermount3: mount failed"},
        {"fuse: failed to open /dev/fuse: Permission denied\n", true,
         ExitStatus::NotAllowed, "may not use /dev/fuse"},
        {"fuse: device not found, try 'modprobe fuse' first\n", false,
         ExitStatus::NoFuse, "module is not loaded"},
        {"fuse: mount failed: Device or resource busy\n", false,
         ExitStatus::Busy, "/x is in use"},
        {"", false, ExitStatus::Failed, "mounting at /x failed"},
    };
    for (const auto &one : cases) {
        const Refusal refusal = ExplainMount("/x", one.said, one.confined);
        EXPECT_EQ(refusal.status, one.status) << one.said;
        EXPECT_NE(refusal.sentence.find(one.told), std::string::npos)
            << refusal.sentence;
        EXPECT_EQ(refusal.sentence.find('\n'), std::string::npos);
    }
}

} // namespace
