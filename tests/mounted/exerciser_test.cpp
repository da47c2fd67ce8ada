// Random work on the volume against the same work on a disk. Short here;
// QUORVEL_EXERCISE_STEPS and QUORVEL_EXERCISE_SEED make it long or repeat it.
#include "tests/mounted/exerciser.h"

#include <sys/stat.h>
#include <unistd.h>

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

// One of the folders that are worked in.
struct Area {
    std::string volume;
    std::string device;
};

class ExerciserTest : public MountedTest
{
  protected:
    // Works in new folders of the volume, as links in one, then compares what
    // the device holds with the plain folders, byte for byte.
    void Work(const std::vector<Area> &areas)
    {
        const uint32_t seed =
            Setting("QUORVEL_EXERCISE_SEED", std::random_device()());
        const uint32_t steps = Setting("QUORVEL_EXERCISE_STEPS", 1500);
        const std::string plain = work + "/plain";
        const std::string links = work + "/links";
        ASSERT_EQ(mkdir(plain.c_str(), 0777), 0);
        ASSERT_EQ(mkdir(links.c_str(), 0777), 0);
        std::vector<std::string> names;
        for (const Area &area : areas) {
            names.push_back("/" + std::to_string(names.size()));
            ASSERT_EQ(mkdir((plain + names.back()).c_str(), 0777), 0);
            ASSERT_EQ(
                symlink(area.volume.c_str(), (links + names.back()).c_str()),
                0);
        }
        const Outcome outcome = Access(
            [&](std::string *data) {
                for (const Area &area : areas) {
                    if (mkdir(area.volume.c_str(), 0777) != 0) {
                        return errno;
                    }
                }
                *data = Exercise(links, plain, names, seed, steps);
                return 0;
            },
            60 + steps / 10.0);
        ASSERT_EQ(outcome.error, 0) << "seed " << seed;
        ASSERT_EQ(outcome.data, "") << "seed " << seed;
        volume->Unmount();
        for (size_t i = 0; i < areas.size(); ++i) {
            const Finished diff =
                RunProgram({"diff", "-r", plain + names[i], areas[i].device});
            EXPECT_EQ(diff.status, 0) << "seed " << seed << "\n" << diff.out;
        }
    }

    Area InStorage()
    {
        return {Storage("exercise"), device->Storage("exercise")};
    }
    Area InReader()
    {
        return {volume->Path("Apps/Caf\xC3\xA9 Reader/exercise"),
                device->folder + "/Apps/com.example.reader/Documents/exercise"};
    }
    Area InNotes()
    {
        return {volume->Path("Apps/Notes/exercise"),
                device->folder + "/Apps/com.example.notes/Documents/exercise"};
    }
};

TEST_F(ExerciserTest, StorageBehavesAsADisk)
{
    Start();
    Work({InStorage()});
}

TEST_F(ExerciserTest, AppFolderBehavesAsADisk)
{
    Start();
    Work({InReader()});
}

TEST_F(ExerciserTest, AreasTogetherBehaveAsADisk)
{
    Start();
    Work({InStorage(), InReader(), InNotes()});
}

} // namespace
