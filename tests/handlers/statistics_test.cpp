// Volume figures, access, and the operation table.
#include "tarnifs/mount/statistics.h"

#include <cstring>
#include <thread>

#include "tests/handlers/fixture.h"

namespace
{

class Statistics : public MountTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(mount()); }
    struct statvfs figures(const char *path)
    {
        struct statvfs st {
        };
        EXPECT_EQ(tarni_opers.statfs(path, &st), 0);
        return st;
    }
};

TEST(CalibrateVolumeSizeTest, ExpressesBinaryUnitsInDecimalOnes)
{
    EXPECT_EQ(CalibrateVolumeSize(0), 0U);
    EXPECT_EQ(CalibrateVolumeSize(1000), 1000U);
    EXPECT_EQ(CalibrateVolumeSize(1024), 1024U);
    EXPECT_EQ(CalibrateVolumeSize(1025), 1000U);
    EXPECT_EQ(CalibrateVolumeSize(68719476736), 64000000000U);
    EXPECT_EQ(CalibrateVolumeSize(15000000000), 13960000000U);
}

TEST_F(Statistics, FiguresOfTheDevice)
{
    const struct statvfs st = figures("/");
    EXPECT_EQ(st.f_bsize, 4096U);
    EXPECT_EQ(st.f_blocks, 15625000U);
    EXPECT_EQ(st.f_bfree, 3408203U);
    EXPECT_EQ(st.f_bavail, 3408203U);
    EXPECT_EQ(st.f_ffree, 0U);
    EXPECT_EQ(figures("/Media").f_blocks, 0U);
    context()->device_info.block_size = 0;
    EXPECT_EQ(figures("/").f_blocks, 15625000U);
    context()->device_info.block_size = 512;
    context()->device_info.total_capacity = 1ULL << 42; // above 32 bits
    EXPECT_EQ(figures("/").f_blocks, 4000000000000U / 512);
}

TEST_F(Statistics, AccessKnowsWhatWasListed)
{
    memoryWorld.devices[0].media.addFile("/general_storage/a");
    EXPECT_EQ(tarni_opers.access("/", 7), 0);
    EXPECT_EQ(tarni_opers.access("/Storage/a", 0), -1);
    list("/Storage");
    EXPECT_EQ(tarni_opers.access("/Storage/a", 7), 0);
}

TEST(OperationTable, HasAHandlerForEveryRequest)
{
    // Through bytes, so that a member added to the table can't be forgotten.
    const size_t members = sizeof(tarni_opers) / sizeof(void *);
    ASSERT_EQ(members, 21U);
    void *slots[21];
    memcpy(slots, &tarni_opers, sizeof(slots));
    for (size_t i = 0; i < members; ++i) {
        EXPECT_NE(slots[i], nullptr) << i;
    }
}

TEST_F(Statistics, OperationsWaitForTheLock)
{
    pthread_mutex_lock(&tarni_mutex);
    std::atomic<int> done{0};
    std::thread first([&] {
        figures("/");
        ++done;
    });
    std::thread second([&] {
        tarni_opers.access("/", 0);
        ++done;
    });
    usleep(50000);
    EXPECT_EQ(done, 0);
    pthread_mutex_unlock(&tarni_mutex);
    first.join();
    second.join();
    EXPECT_EQ(done, 2);
}

} // namespace
