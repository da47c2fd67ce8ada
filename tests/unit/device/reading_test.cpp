// Reads: what requests they cost, and that every byte is the right one.
#include "sim.h"

static constexpr size_t kPiece = 128 << 10; // what the kernel asks for

using Reading = DeviceTest;

TEST_F(Reading, InOrderNeedsNoSeekAndFetchesEveryByteOnce)
{
    constexpr size_t size = 64 << 20;
    start();
    libiusb_file file = openFile(makeFile("long.bin", size));
    EXPECT_EQ(readAll(file), pattern(size));
    EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    EXPECT_EQ(sim->afc("FileRefSeek"), 0);
    EXPECT_LE(sim->afc("FileRefRead"), 64 * 4 + 4);
    EXPECT_EQ(sim->stats()["bytes_read"], size);
    // The end of a file needs no further requests.
    for (size_t small : {0U, 1U, 1000U, 131072U, 300'000U}) {
        file = openFile(makeFile("end" + std::to_string(small), small));
        EXPECT_EQ(readAll(file), pattern(small));
        EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    }
    EXPECT_EQ(sim->afc("FileRefTell") + sim->afc("FileRefSeek"), 0);
    file = openFile("/general_storage/end1000");
    EXPECT_EQ(read(file, 5000, 100), "");
    EXPECT_EQ(read(file, 990, 100), pattern(10, 990));
    EXPECT_EQ(read(file, 0, 0), "");
}

TEST_F(Reading, ElsewhereFetchesOnlyWhatIsAsked)
{
    constexpr size_t size = 8 << 20;
    start();
    libiusb_file file = openFile(makeFile("random.bin", size));
    for (uint64_t offset : {5'000'000U, 100U, 7'000'001U, 1'234'567U, 4096U})
        EXPECT_EQ(read(file, offset, 70'000), pattern(70'000, offset));
    EXPECT_EQ(sim->afc("FileRefSeek"), 5);
    EXPECT_EQ(sim->afc("FileRefRead"), 5);
    EXPECT_EQ(sim->stats()["bytes_read"], 350'000);
    for (size_t call : {1'500'000U, 99'999U, 4096U})
        EXPECT_EQ(readAll(file, call), pattern(size)) << call;
    // Slightly out of order: nothing after the first is fetched twice.
    sim->resetStats();
    for (uint64_t at : {0U, 1U, 3U, 2U, 5U, 4U, 6U, 8U, 7U, 9U, 10U})
        EXPECT_EQ(read(file, at * kPiece, kPiece),
                  pattern(kPiece, at * kPiece));
    EXPECT_LE(sim->afc("FileRefSeek"), 1);
    EXPECT_LE(sim->stats()["bytes_read"].get<uint64_t>(), size);
}

TEST_F(Reading, ReadAheadIsBoundedForAllFilesTogether)
{
    constexpr size_t size = 4 << 20;
    start();
    std::vector<libiusb_file> files;
    for (int i = 0; i < 40; i++)
        files.push_back(openFile(makeFile("many" + std::to_string(i), size)));
    for (uint64_t at = 0; at < 4; at++) {
        for (libiusb_file file : files) {
            ASSERT_EQ(read(file, at * kPiece, kPiece),
                      pattern(kPiece, at * kPiece));
        }
    }
    // They share 16 MiB of read-ahead, and none throws away another's.
    auto fetched = sim->stats()["bytes_read"].get<uint64_t>();
    EXPECT_LE(fetched, files.size() * 4 * kPiece + (17U << 20));
    EXPECT_EQ(readAll(files[0]), pattern(size));
    // Files that rest give their share to one that is read.
    Eventually([] { return false; }, 1.1);
    sim->resetStats();
    files.push_back(openFile("/general_storage/many39"));
    EXPECT_EQ(readAll(files.back()), pattern(size));
    EXPECT_LE(sim->afc("FileRefRead"), 25);
    for (libiusb_file file : files)
        EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
}

TEST_F(Reading, AChangeDropsWhatWasReadAhead)
{
    constexpr size_t size = 4 << 20;
    start();
    std::string path = makeFile("changing.bin", size);
    libiusb_file reader = openFile(path);
    for (uint64_t at = 0; at < 4; at++)
        read(reader, at * kPiece, kPiece);
    libiusb_file writer = openFile(path, LIBIUSB_MODE_UPDATE);
    ASSERT_EQ(write(writer, 4 * kPiece, std::string(size - 4 * kPiece, 'n')),
              0);
    EXPECT_EQ(read(reader, 4 * kPiece, kPiece), std::string(kPiece, 'n'));
    // A file that grew or shrank behind the handle is read to its new end.
    ASSERT_EQ(libiusb_afc_file_set_size(afc, writer, 5 * kPiece + 7), 0);
    EXPECT_EQ(read(reader, 5 * kPiece, kPiece), std::string(7, 'n'));
    ASSERT_EQ(libiusb_afc_file_set_size(afc, writer, 6 * kPiece), 0);
    EXPECT_EQ(read(reader, 5 * kPiece + 7, kPiece),
              std::string(kPiece - 7, '\0'));
}

TEST_F(Reading, ShortAndFailedRepliesLoseNothing)
{
    constexpr size_t size = 6 << 20;
    start();
    std::string path = makeFile("short.bin", size);
    libiusb_file file = openFile(path);
    sim->control("short-read 1 after=2");
    sim->control("short-read 2 after=9");
    EXPECT_EQ(readAll(file), pattern(size));
    // The first piece that is read ahead is short or fails; what follows it in
    // flight comes from other places than it was asked for.
    for (const char *fault :
         {"short-read 1 after=1", "fail FileRefRead 1 20 after=1"}) {
        file = openFile(path);
        EXPECT_EQ(read(file, 0, kPiece), pattern(kPiece));
        sim->control(fault);
        for (uint64_t at : {1U, 5U, 2U})
            EXPECT_EQ(read(file, at * kPiece, kPiece),
                      pattern(kPiece, at * kPiece))
                << fault;
    }
    // Empty replies are asked for again three times at most.
    sim->control("zero-read 3");
    EXPECT_EQ(read(file, 1000, 5000), pattern(5000, 1000));
    sim->control("zero-read 4");
    EXPECT_EQ(readCode(file, 9000), LIBIUSB_ERROR_AFC_IO);
    sim->control("zero-read 2 after=5");
    EXPECT_EQ(readAll(file), pattern(size));
}

TEST_F(Reading, AFailedReadLeavesTheFileUsable)
{
    constexpr size_t size = 4 << 20;
    start();
    libiusb_file file = openFile(makeFile("fail.bin", size));
    sim->control("fail FileRefRead 1 20 after=3");
    int failures = 0;
    for (uint64_t at = 0; at < size;) {
        int code = readCode(file, at, kPiece);
        EXPECT_TRUE(code == 0 || code == LIBIUSB_ERROR_AFC_IO);
        failures += code != 0;
        ASSERT_LT(failures, 3);
        at += code ? 0 : kPiece;
    }
    EXPECT_EQ(failures, 1);
    EXPECT_EQ(readAll(file), pattern(size));
    // A seek that fails must not let the read behind it answer.
    sim->control("fail FileRefSeek 1 7");
    EXPECT_EQ(readCode(file, 123, 10), LIBIUSB_ERROR_AFC_INVALID_ARG);
    EXPECT_EQ(read(file, 123, 10), pattern(10, 123));
}

TEST_F(Reading, OverTlsAndInTinySegments)
{
    constexpr size_t size = 3'333'333;
    start({"--tls", "all"});
    libiusb_file file = openFile(makeFile("tls.bin", size));
    sim->control("corrupt FileRefRead 3 splitreply");
    EXPECT_EQ(readAll(file), pattern(size));
    EXPECT_EQ(read(file, 2'000'000, 1 << 20), pattern(1 << 20, 2'000'000));
}
