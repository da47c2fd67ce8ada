// Random work on the volume against the same work on a disk. Short here;
// QUORVEL_EXERCISE_STEPS and QUORVEL_EXERCISE_SEED make it long or repeat it.
#include "tests/mounted/exerciser.h"

#include <sys/stat.h>

#include <cstdlib>
#include <random>

#include "tests/mounted/fixture.h"

namespace
{

uint32_t Setting(const char *name, uint32_t otherwise)
{
    const char *text = getenv(name); // NOLINT(concurrency-mt-unsafe)
    return text == nullptr ? otherwise
                           : static_cast<uint32_t>(strtoul(text, nullptr, 10));
}

class ExerciserTest : public MountedTest
{
  protected:
    // Works in a new folder of the volume, then compares what the device holds
    // with the plain folder, byte for byte.
    void Work(const std::string &volume_folder,
              const std::string &device_folder)
    {
        const uint32_t seed =
            Setting("QUORVEL_EXERCISE_SEED", std::random_device()());
        const uint32_t steps = Setting("QUORVEL_EXERCISE_STEPS", 1500);
        const std::string plain = work + "/plain";
        ASSERT_EQ(mkdir(plain.c_str(), 0777), 0);
        const Outcome outcome = Access(
            [&](std::string *data) {
                if (mkdir(volume_folder.c_str(), 0777) != 0) {
                    return errno;
                }
                *data = Exercise(volume_folder, plain, seed, steps);
                return 0;
            },
            60 + steps / 10.0);
        ASSERT_EQ(outcome.error, 0) << "seed " << seed;
        ASSERT_EQ(outcome.data, "") << "seed " << seed;
        volume->Unmount();
        const Finished diff = RunProgram({"diff", "-r", plain, device_folder});
        EXPECT_EQ(diff.status, 0) << "seed " << seed << "\n" << diff.out;
    }
};

TEST_F(ExerciserTest, StorageBehavesAsADisk)
{
    Start();
    Work(Storage("exercise"), device->Storage("exercise"));
}

TEST_F(ExerciserTest, AppFolderBehavesAsADisk)
{
    Start();
    Work(volume->Path("Apps/Caf\xC3\xA9 Reader/exercise"),
         device->folder + "/Apps/com.example.reader/Documents/exercise");
}

} // namespace
