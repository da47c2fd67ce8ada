// Writes, modes, handles, and changes to names.
#include "sim.h"

using Writing = DeviceTest;

TEST_F(Writing, InOrderNeedsNoSeekAndIsThereWhenTheCallReturns)
{
    start();
    libiusb_file file = openFile("/general_storage/new", LIBIUSB_MODE_WRITE);
    std::string written;
    for (size_t size : {1U, 300'000U, 5'000'000U, 128U << 10}) {
        uint32_t count = 0;
        Bytes piece = pattern(size, written.size());
        EXPECT_EQ(write(file, written.size(), piece, &count), 0);
        EXPECT_EQ(count, size);
        written += piece;
        EXPECT_EQ(onDevice("new"), written);
    }
    EXPECT_EQ(sim->afc("FileRefSeek"), 0);
    EXPECT_EQ(write(file, 10, ""), 0);
}

TEST_F(Writing, AfterAReadToTheEndTheNextWriteIsInPlace)
{
    constexpr size_t size = 300 << 10, call = 100 << 10;
    start();
    libiusb_file file = openFile(makeFile("grow", size), LIBIUSB_MODE_UPDATE);
    for (uint64_t at = 0; at < size; at += call)
        EXPECT_EQ(read(file, at, call), pattern(call, at));
    ASSERT_EQ(libiusb_afc_file_set_size(afc, file, 1 << 20), 0);
    // Where the device would stand if the file had gone on.
    EXPECT_EQ(write(file, 456 << 10, "here"), 0);
    EXPECT_EQ(onDevice("grow").substr(size, 456 * 1024 - size + 4),
              std::string(456 * 1024 - size, '\0') + "here");
}

TEST_F(Writing, ModesDoWhatTheyPromise)
{
    start({"--max-files", "5"});
    std::string path = makeFile("modes", 100);
    libiusb_file update = openFile(path, LIBIUSB_MODE_UPDATE);
    EXPECT_EQ(write(update, 50, "update"), 0);
    EXPECT_EQ(read(update, 48, 10), pattern(2, 48) + "update" + pattern(2, 56));
    libiusb_file append = openFile(path, LIBIUSB_MODE_APPEND);
    EXPECT_EQ(write(append, 0, "end"), 0);
    EXPECT_EQ(onDevice("modes").substr(100), "end");
    libiusb_file truncate = openFile(path, LIBIUSB_MODE_WRITE);
    EXPECT_EQ(onDevice("modes"), "");
    // A hole reads as zeros, and a file that was written is read to its end.
    EXPECT_EQ(write(truncate, 5, "x"), 0);
    EXPECT_EQ(read(update, 0, 100), std::string(5, '\0') + "x");
    openFile("/general_storage/made", LIBIUSB_MODE_UPDATE);
    EXPECT_TRUE(exists(sim->storage() / "made"));
    const struct {
        const char *path;
        int mode, code;
    } refused[] = {{"/nowhere/x", 1, LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND},
                   {path.c_str(), 0, LIBIUSB_ERROR_INVALID_ARG},
                   {path.c_str(), 2, LIBIUSB_ERROR_INVALID_ARG},
                   {path.c_str(), 7, LIBIUSB_ERROR_INVALID_ARG},
                   {path.c_str(), -1, LIBIUSB_ERROR_INVALID_ARG}};
    libiusb_file file = 1;
    for (const auto &each : refused) {
        EXPECT_EQ(libiusb_afc_file_open(afc, each.path, each.mode, &file),
                  each.code);
        EXPECT_EQ(file, 0U);
    }
    openFile(path);
    EXPECT_EQ(libiusb_afc_file_open(afc, path.c_str(), 1, &file),
              LIBIUSB_ERROR_AFC_NO_RESOURCES);
}

TEST_F(Writing, AFailureTellsWhatWasConfirmedAndTheNextWriteIsInPlace)
{
    constexpr uint32_t chunk = 256 << 10;
    start();
    libiusb_file file = openFile("/general_storage/full", LIBIUSB_MODE_UPDATE);
    sim->control("fail FileRefWrite 1 18 after=2");
    uint32_t count = 0;
    std::string bytes = pattern(5 * chunk);
    EXPECT_EQ(write(file, 0, bytes, &count), LIBIUSB_ERROR_NO_SPACE);
    EXPECT_EQ(count, 2 * chunk);
    EXPECT_EQ(onDevice("full").substr(0, count), bytes.substr(0, count));
    EXPECT_EQ(write(file, count, bytes.substr(count)), 0);
    EXPECT_EQ(onDevice("full"), bytes);
    // Data behind a seek that fails is not sent at all.
    sim->control("fail FileRefSeek 1 20");
    EXPECT_EQ(write(file, 3, "wrong place"), LIBIUSB_ERROR_AFC_IO);
    EXPECT_EQ(onDevice("full"), bytes);
    sim->control("space 100000");
    EXPECT_EQ(write(file, bytes.size(), pattern(1 << 20)),
              LIBIUSB_ERROR_NO_SPACE);
    EXPECT_EQ(onDevice("full").substr(0, bytes.size()), bytes);
}

TEST_F(Writing, MuchDataInBothDirectionsDoesNotJam)
{
    constexpr size_t size = 16 << 20;
    for (const char *tls : {"off", "all"}) {
        start({"--tls", tls});
        libiusb_file in = openFile(makeFile("in", size));
        libiusb_file out = openFile("/general_storage/out", LIBIUSB_MODE_WRITE);
        for (uint64_t at = 0; at < size; at += 4 << 20) {
            // Read-ahead is under way, unread, when the write begins.
            std::string bytes =
                read(in, at, 2 << 20) + read(in, at + (2 << 20), 2 << 20);
            ASSERT_EQ(write(out, at, bytes), 0);
        }
        EXPECT_EQ(onDevice("out"), pattern(size));
    }
}

TEST_F(Writing, AHandleWorksOnlyWithItsConnection)
{
    start();
    libiusb_file file = openFile(makeFile("own", 100));
    libiusb_afc *other = nullptr;
    ASSERT_EQ(libiusb_afc_init(opened->device, &other), 0);
    sim->resetStats();
    char byte = 'x';
    uint32_t count = 0;
    for (int code : {libiusb_afc_file_read(other, file, &byte, 1, 0, &count),
                     libiusb_afc_file_write(other, file, &byte, 1, 0, &count),
                     libiusb_afc_file_set_size(other, file, 0),
                     libiusb_afc_file_close(other, file),
                     libiusb_afc_file_read(afc, 0, &byte, 1, 0, &count),
                     libiusb_afc_file_read(nullptr, file, &byte, 1, 0, &count)})
        EXPECT_EQ(code, LIBIUSB_ERROR_INVALID_ARG);
    EXPECT_TRUE(sim->stats()["afc"].empty());
    EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    EXPECT_EQ(libiusb_afc_file_close(afc, file), LIBIUSB_ERROR_INVALID_ARG);
    EXPECT_EQ(libiusb_afc_exit(other), 0);
}

TEST_F(Writing, Names)
{
    start();
    makeFile("tree/one", 10);
    makeFile("two", 20);
    const std::string at = "/general_storage/";
    auto make = [&](const std::string &path) {
        return libiusb_afc_make_directory(afc, path.c_str());
    };
    auto remove = [&](const std::string &path) {
        return libiusb_afc_file_remove(afc, path.c_str());
    };
    EXPECT_EQ(make(at + "a/b/c"), 0);
    EXPECT_EQ(make(at + "a"), 0);
    EXPECT_EQ(remove(at + "tree"), LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY);
    EXPECT_EQ(libiusb_afc_rename(afc, (at + "two").c_str(),
                                 (at + "tree/one").c_str()),
              0);
    EXPECT_EQ(onDevice("tree/one"), pattern(20));
    EXPECT_EQ(remove(at + "tree/one"), 0);
    EXPECT_EQ(remove(at + "tree"), 0);
    EXPECT_EQ(remove(at + "tree"), LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
    EXPECT_EQ(remove(""), LIBIUSB_ERROR_INVALID_ARG);
    EXPECT_EQ(make(std::string(100'000, 'p')), LIBIUSB_ERROR_INVALID_ARG);
    EXPECT_EQ(libiusb_afc_rename(afc, "/x", nullptr),
              LIBIUSB_ERROR_INVALID_ARG);
}
