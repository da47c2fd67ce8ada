// Copies inside the device: announced sources, writes behind, early closes.
#include <vector>

#include "sim.h"

class Copying : public DeviceTest
{
  protected:
    // A copy as the file system makes it. The result of its drain.
    int copy(libiusb_afc *from, const std::string &source, libiusb_afc *to,
             const std::string &target) const
    {
        libiusb_afc_file_info about{};
        libiusb_file in = 0, out = 0;
        libiusb_afc_prefetch_file(from, source.c_str());
        EXPECT_EQ(libiusb_afc_file_get_info(from, source.c_str(), &about), 0);
        EXPECT_EQ(
            libiusb_afc_file_open(from, source.c_str(), LIBIUSB_MODE_READ, &in),
            0);
        EXPECT_EQ(
            libiusb_afc_file_open(to, target.c_str(), LIBIUSB_MODE_WRITE, &out),
            0);
        EXPECT_EQ(libiusb_afc_file_write_behind(to, out), 0);
        std::vector<char> piece(64 << 10);
        uint32_t count = 0, written = 0;
        for (uint64_t at = 0; at < about.size; at += count) {
            if (libiusb_afc_file_read(from, in, piece.data(), 64 << 10, at,
                                      &count) ||
                count == 0 ||
                libiusb_afc_file_write(to, out, piece.data(), count, at,
                                       &written))
                break;
        }
        libiusb_afc_file_close_ahead(to, out);
        libiusb_afc_file_close_ahead(from, in);
        EXPECT_LT(libiusb_afc_file_write(to, out, "x", 1, 0, &written), 0);
        int code = libiusb_afc_file_drain(to, out);
        int lost = code == LIBIUSB_ERROR_LOST_CONNECTION ? code : 0;
        EXPECT_EQ(libiusb_afc_file_close(to, out), lost);
        EXPECT_EQ(libiusb_afc_file_close(from, in), from == to ? lost : 0);
        return code;
    }
    Bytes onDevice(const std::string &name) const
    {
        return fileBytes(sim->media() / "general_storage" / name);
    }
};

TEST_F(Copying, AsksForNothingTwice)
{
    for (const char *window : {"1", "3", "512"}) {
        Setting setting("QUORVEL_AFC_WINDOW", window);
        start();
        for (size_t size : {0U, 1U, 20U << 10, 256U << 10, 7'000'000U}) {
            SCOPED_TRACE(std::string(window) + ": " + std::to_string(size));
            std::string source = makeFile("source", size);
            sim->resetStats();
            EXPECT_EQ(copy(afc, source, afc, "/general_storage/target"), 0);
            EXPECT_EQ(onDevice("target"), pattern(size));
            int pieces = static_cast<int>((size + (256 << 10) - 1) >> 18);
            EXPECT_EQ(sim->afc("FileRefWrite"), pieces);
            EXPECT_EQ(sim->afc("FileRefOpen"), 2);
            EXPECT_EQ(sim->afc("FileRefClose"), 2);
            if (*window == '5') {
                EXPECT_EQ(sim->afc("FileRefRead"), pieces);
                EXPECT_EQ(sim->afc("GetFileInfo"), 1);
                EXPECT_EQ(sim->afc("FileRefSeek"), 0);
                EXPECT_EQ(sim->afc("FileRefTell"), 0);
            }
        }
        if (*window != '5')
            TearDown();
    }
}

TEST_F(Copying, BetweenTwoConnections)
{
    start();
    libiusb_afc *house = nullptr;
    ASSERT_EQ(libiusb_housearrest_init(opened->device, &house), 0);
    ASSERT_EQ(libiusb_housearrest_openapp(house, "com.example.notes"), 0);
    std::string source = makeFile("source", 5'000'000);
    EXPECT_EQ(copy(afc, source, house, "/Documents/there"), 0);
    EXPECT_EQ(copy(house, "/Documents/there", afc, "/general_storage/back"), 0);
    EXPECT_EQ(onDevice("back"), pattern(5'000'000));
    EXPECT_EQ(sim->afc("FileRefSeek"), 0);
    libiusb_housearrest_exit(house);
}

TEST_F(Copying, AFailedWriteIsTold)
{
    start();
    std::string source = makeFile("source", 3'000'000);
    for (int nth : {0, 5, 11}) {
        sim->control("fail FileRefWrite 1 18 after=" + std::to_string(nth));
        EXPECT_EQ(copy(afc, source, afc, "/general_storage/target"),
                  LIBIUSB_ERROR_NO_SPACE);
    }
    // Without a drain the close tells.
    libiusb_file file = openFile("/general_storage/new", LIBIUSB_MODE_WRITE);
    uint32_t count = 0;
    EXPECT_EQ(libiusb_afc_file_write_behind(afc, file), 0);
    sim->control("fail FileRefWrite 1 18");
    EXPECT_EQ(libiusb_afc_file_write(afc, file, "text", 4, 0, &count), 0);
    EXPECT_EQ(count, 4U);
    EXPECT_EQ(libiusb_afc_file_close(afc, file), LIBIUSB_ERROR_NO_SPACE);
    // A connection that goes takes nothing else along.
    sim->control("drop FileRefWrite 1 after=3");
    EXPECT_EQ(copy(afc, source, afc, "/general_storage/target"),
              LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_EQ(copy(afc, source, afc, "/general_storage/target"), 0);
    EXPECT_EQ(onDevice("target"), pattern(3'000'000));
}

TEST_F(Copying, WritesBehindGoWhereTheyAreAsked)
{
    start();
    libiusb_file file = openFile("/general_storage/new", LIBIUSB_MODE_WRITE);
    ASSERT_EQ(libiusb_afc_file_write_behind(afc, file), 0);
    uint32_t count = 0;
    std::string long_text = pattern(600'000);
    libiusb_afc_file_write(afc, file, "last", 4, 600'000, &count);
    libiusb_afc_file_write(afc, file, long_text.data(), 600'000, 0, &count);
    EXPECT_EQ(libiusb_afc_file_drain(afc, file), 0);
    EXPECT_EQ(onDevice("new"), long_text + "last");
    libiusb_afc_file_write(afc, file, "more", 4, 600'000, &count);
    char byte = 0;
    EXPECT_EQ(libiusb_afc_file_read(afc, file, &byte, 1, 0, &count),
              LIBIUSB_ERROR_INVALID_ARG);
    EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    EXPECT_EQ(onDevice("new"), long_text + "more");
}

TEST_F(Copying, WhatWasAnnouncedAndNotTakenLeavesNothing)
{
    start();
    std::string path = makeFile("source", 100);
    auto open_files = [&] {
        list("/general_storage"); // behind whatever was sent before
        return sim->stats()["open_files"].get<int>();
    };
    libiusb_afc_prefetch_file(afc, path.c_str());
    EXPECT_EQ(open_files(), 0);
    libiusb_afc_prefetch_file(afc, path.c_str());
    libiusb_afc_prefetch_file(afc, "/general_storage/missing");
    EXPECT_EQ(info("/general_storage/missing"),
              LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
    libiusb_file file = 0;
    EXPECT_EQ(libiusb_afc_file_open(afc, "/general_storage/missing",
                                    LIBIUSB_MODE_READ, &file),
              LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
    // The file itself is opened to be changed: nothing old may be read.
    libiusb_afc_prefetch_file(afc, path.c_str());
    EXPECT_EQ(info(path), 0);
    libiusb_file target = openFile(path, LIBIUSB_MODE_WRITE);
    EXPECT_EQ(libiusb_afc_file_close(afc, target), 0);
    file = openFile(path);
    EXPECT_EQ(read(file, 0, 10), "");
    EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    libiusb_afc_prefetch_file(afc, path.c_str());
    libiusb_afc_prefetch_file(afc, nullptr);
    EXPECT_EQ(open_files(), 0);
    libiusb_afc_prefetch_file(afc, path.c_str()); // and the end of the handle
}
