// Reads: what requests they cost, and that every byte is the right one.
#include "sim.h"

class Reading : public DeviceTest
{
};

TEST_F(Reading, InOrderNeedsNoSeekAndFetchesEveryByteOnce)
{
    constexpr size_t size = 64 << 20;
    start();
    libiusb_file file = openFile(makeFile("long.bin", size));
    EXPECT_EQ(readAll(file), pattern(size));
    auto stats = sim->stats();
    EXPECT_EQ(stats["afc"].value("FileRefSeek", 0), 0);
    EXPECT_LE(stats["afc"].value("FileRefRead", 0), 64 * 4 + 4);
    EXPECT_EQ(stats["bytes_read"], size);
    EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
}
