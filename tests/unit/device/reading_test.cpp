// Reads: what requests they cost, and that every byte is the right one.
#include <poll.h>

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

TEST_F(Reading, ElsewhereFetchesOnlyWhatIsAsked)
{
    constexpr size_t size = 8 << 20;
    start();
    libiusb_file file = openFile(makeFile("random.bin", size));
    uint64_t asked = 0;
    for (uint64_t offset : {5'000'000U, 100U, 7'000'001U, 1'234'567U, 4096U}) {
        EXPECT_EQ(read(file, offset, 70'000), pattern(70'000, offset));
        asked += 70'000;
    }
    auto stats = sim->stats();
    EXPECT_EQ(stats["afc"]["FileRefSeek"], 5);
    EXPECT_EQ(stats["afc"]["FileRefRead"], 5);
    EXPECT_EQ(stats["bytes_read"], asked);
}

TEST_F(Reading, EndOfFileNeedsNoFurtherRequests)
{
    start();
    for (size_t size : {0U, 1U, 1000U, 131072U, 300'000U}) {
        libiusb_file file =
            openFile(makeFile("end" + std::to_string(size), size));
        EXPECT_EQ(readAll(file), pattern(size));
        EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    }
    auto stats = sim->stats();
    EXPECT_EQ(stats["afc"].value("FileRefTell", 0), 0);
    EXPECT_EQ(stats["afc"].value("FileRefSeek", 0), 0);
    libiusb_file file = openFile("/general_storage/end1000");
    EXPECT_EQ(read(file, 5000, 100), "");
    EXPECT_EQ(read(file, 990, 100), pattern(10, 990));
    EXPECT_EQ(read(file, 0, 0), "");
}

TEST_F(Reading, CallsOfAnySizeAndSlightlyOutOfOrder)
{
    constexpr size_t size = 3'000'000;
    start();
    libiusb_file file = openFile(makeFile("mixed.bin", size));
    for (size_t call : {1'500'000U, 99'999U, 4096U})
        EXPECT_EQ(readAll(file, call), pattern(size)) << call;
    sim->resetStats();
    constexpr size_t piece = 128 << 10;
    uint64_t order[] = {0, 1, 3, 2, 5, 4, 6, 8, 7, 9, 10};
    for (uint64_t at : order)
        EXPECT_EQ(read(file, at * piece, piece), pattern(piece, at * piece));
    // The very first begins elsewhere; nothing after it is fetched twice.
    auto stats = sim->stats();
    EXPECT_LE(stats["afc"].value("FileRefSeek", 0), 1);
    EXPECT_LE(stats["bytes_read"].get<uint64_t>(), size);
}

TEST_F(Reading, ReadAheadIsBoundedForAllFilesTogether)
{
    constexpr size_t size = 4 << 20, piece = 128 << 10;
    start();
    std::vector<libiusb_file> files;
    files.reserve(40);
    for (int i = 0; i < 40; i++)
        files.push_back(openFile(makeFile("many" + std::to_string(i), size)));
    for (uint64_t at = 0; at < 4; at++) {
        for (libiusb_file file : files) {
            ASSERT_EQ(read(file, at * piece, piece),
                      pattern(piece, at * piece));
        }
    }
    // They share 16 MiB of read-ahead, and none throws away another's.
    auto fetched = sim->stats()["bytes_read"].get<uint64_t>();
    EXPECT_LE(fetched, files.size() * 4 * piece + (17U << 20));
    EXPECT_EQ(readAll(files[0]), pattern(size));
    // Files that rest give their share to one that is read.
    poll(nullptr, 0, 1100);
    sim->resetStats();
    files.push_back(openFile("/general_storage/many39"));
    EXPECT_EQ(readAll(files.back()), pattern(size));
    EXPECT_LE(sim->afc("FileRefRead"), 25);
    for (libiusb_file file : files)
        EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
}

TEST_F(Reading, AChangeDropsWhatWasReadAhead)
{
    constexpr size_t size = 4 << 20, piece = 128 << 10;
    start();
    std::string path = makeFile("changing.bin", size);
    libiusb_file reader = openFile(path);
    for (uint64_t at = 0; at < 4; at++)
        read(reader, at * piece, piece);
    libiusb_file writer = openFile(path, LIBIUSB_MODE_UPDATE);
    std::string news(size - 4 * piece, 'n');
    uint32_t count = 0;
    ASSERT_EQ(libiusb_afc_file_write(afc, writer, news.data(),
                                     static_cast<uint32_t>(news.size()),
                                     4 * piece, &count),
              0);
    EXPECT_EQ(read(reader, 4 * piece, piece), std::string(piece, 'n'));
    // A file that grew or shrank behind the handle is read to its new end.
    ASSERT_EQ(libiusb_afc_file_set_size(afc, writer, 5 * piece + 7), 0);
    EXPECT_EQ(read(reader, 5 * piece, piece), std::string(7, 'n'));
    ASSERT_EQ(libiusb_afc_file_set_size(afc, writer, 6 * piece), 0);
    EXPECT_EQ(read(reader, 5 * piece + 7, piece), std::string(piece - 7, '\0'));
}

TEST_F(Reading, AShortReplyInTheMiddleLosesNothing)
{
    constexpr size_t size = 6 << 20;
    start();
    libiusb_file file = openFile(makeFile("short.bin", size));
    sim->control("short-read 1 after=2");
    sim->control("short-read 2 after=9");
    EXPECT_EQ(readAll(file), pattern(size));
}

TEST_F(Reading, AShortReplyInFrontOfWhatIsAskedForIsNoticed)
{
    constexpr size_t size = 6 << 20, piece = 128 << 10;
    start();
    libiusb_file file = openFile(makeFile("front.bin", size));
    EXPECT_EQ(read(file, 0, piece), pattern(piece));
    // The first piece that is read ahead is short; what follows it in flight
    // comes from other places than it was asked for.
    sim->control("short-read 1 after=1");
    EXPECT_EQ(read(file, piece, piece), pattern(piece, piece));
    EXPECT_EQ(read(file, 5 * piece, piece), pattern(piece, 5 * piece));
    EXPECT_EQ(read(file, 2 * piece, piece), pattern(piece, 2 * piece));
    // The same with one that fails.
    file = openFile("/general_storage/front.bin");
    EXPECT_EQ(read(file, 0, piece), pattern(piece));
    sim->control("fail FileRefRead 1 20 after=1");
    EXPECT_EQ(read(file, piece, piece), pattern(piece, piece));
    EXPECT_EQ(read(file, 5 * piece, piece), pattern(piece, 5 * piece));
    EXPECT_EQ(readAll(file), pattern(size));
}

TEST_F(Reading, EmptyRepliesAreAskedForAgainThreeTimesAtMost)
{
    constexpr size_t size = 1 << 20;
    start();
    libiusb_file file = openFile(makeFile("zero.bin", size));
    sim->control("zero-read 3");
    EXPECT_EQ(read(file, 1000, 5000), pattern(5000, 1000));
    sim->control("zero-read 4");
    std::string buffer(5000, 'x');
    uint32_t count = 77;
    EXPECT_EQ(
        libiusb_afc_file_read(afc, file, buffer.data(), 5000, 9000, &count),
        LIBIUSB_ERROR_AFC_IO);
    EXPECT_EQ(count, 0U);
    // And in the middle of a transfer with requests in flight.
    sim->control("zero-read 2 after=5");
    EXPECT_EQ(readAll(file), pattern(size));
}

TEST_F(Reading, AFailedReadLeavesTheFileUsable)
{
    constexpr size_t size = 4 << 20;
    start();
    libiusb_file file = openFile(makeFile("fail.bin", size));
    sim->control("fail FileRefRead 1 20 after=3");
    std::string all;
    int failures = 0;
    while (all.size() < size) {
        std::string piece(128 << 10, '\0');
        uint32_t count = 0;
        int code = libiusb_afc_file_read(afc, file, piece.data(),
                                         static_cast<uint32_t>(piece.size()),
                                         all.size(), &count);
        if (code) {
            EXPECT_EQ(code, LIBIUSB_ERROR_AFC_IO);
            EXPECT_EQ(count, 0U);
            ASSERT_LT(++failures, 3);
        }
        all += piece.substr(0, count);
    }
    EXPECT_EQ(failures, 1);
    EXPECT_EQ(all, pattern(size));
    // A seek that fails must not let the read behind it answer.
    sim->control("fail FileRefSeek 1 7");
    uint32_t count = 0;
    EXPECT_EQ(libiusb_afc_file_read(afc, file, all.data(), 10, 123, &count),
              LIBIUSB_ERROR_AFC_INVALID_ARG);
    EXPECT_EQ(read(file, 123, 10), pattern(10, 123));
}

TEST_F(Reading, OneRequestAtATimeWhenPipeliningIsOff)
{
    Setting window("QUORVEL_AFC_WINDOW", "1");
    constexpr size_t size = 3 << 20;
    start();
    libiusb_file file = openFile(makeFile("window.bin", size));
    EXPECT_EQ(readAll(file), pattern(size));
    EXPECT_EQ(sim->stats()["bytes_read"], size);
    EXPECT_EQ(read(file, 77, 1 << 20), pattern(1 << 20, 77));
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
