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

TEST_F(Statistics, BinaryUnitsAreExpressedInDecimalOnes)
{
    const std::pair<uint64_t, uint64_t> sizes[] = {{0, 0},
                                                   {1000, 1000},
                                                   {1024, 1024},
                                                   {1025, 1000},
                                                   {68719476736, 64000000000},
                                                   {15000000000, 13960000000}};
    for (const auto &[size, shown] : sizes) {
        EXPECT_EQ(CalibrateVolumeSize(size), shown);
    }
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
    media().addFile("/general_storage/a");
    EXPECT_EQ(tarni_opers.access("/", 7), 0);
    EXPECT_EQ(tarni_opers.access("/Storage/a", 0), -1);
    list("/Storage");
    EXPECT_EQ(tarni_opers.access("/Storage/a", 7), 0);
    // Through bytes, so that a member added to the table can't be forgotten.
    constexpr size_t members = sizeof(tarni_opers) / sizeof(void *);
    EXPECT_EQ(members, 21U);
    void *slots[members];
    memcpy(slots, &tarni_opers, sizeof(slots));
    EXPECT_EQ(std::count(std::begin(slots), std::end(slots), nullptr), 0);
}

TEST_F(Statistics, OperationsWaitForTheLock)
{
    pthread_mutex_lock(&tarni_mutex);
    std::atomic<int> done{0};
    std::thread first([&] { done += figures("/").f_bsize != 0 ? 1 : 0; });
    std::thread second([&] { done += tarni_opers.access("/", 0) + 1; });
    usleep(50000);
    EXPECT_EQ(done, 0);
    pthread_mutex_unlock(&tarni_mutex);
    first.join();
    second.join();
    EXPECT_EQ(done, 2);
}

} // namespace
