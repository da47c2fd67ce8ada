// Writing and cutting: what the volume shows afterwards is what the device has.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "tests/mounted/fixture.h"

namespace
{

using ChangeTest = MountedTest;

TEST_F(ChangeTest, WhatIsWrittenAndCutReachesTheDevice)
{
    MakeDevice({"--capacity", "64000000000", "--free", "32000000000"});
    device->Put("old", "a much longer text than the new one\n");
    device->Put("long", std::string(100000, 'l'));
    device->Put("f", "0123456789");
    device->Put("grow", "abc");
    device->Put("big", "");
    Start();
    Spill(work + "/short", "short\n");
    for (const std::string &line :
         {"echo x > '" + Storage("old") + "'",
          "cp '" + work + "/short' '" + Storage("long") + "'",
          "truncate -s 5 '" + Storage("f") + "'",
          "truncate -s 6 '" + Storage("grow") + "'"}) {
        EXPECT_EQ(RunProgram({"sh", "-c", line}).status, 0) << line;
    }
    const std::string path = Storage("f");
    EXPECT_EQ(Try([&] { return truncate(path.c_str(), 4); }).error, 0);
    const Outcome outcome = Access([&](std::string *data) {
        const int fd = open(path.c_str(), O_RDWR);
        const int end = open(path.c_str(), O_WRONLY | O_APPEND);
        if (pwrite(fd, "AB", 2, 3) != 2 || write(end, "END", 3) != 3) {
            return errno;
        }
        char buffer[32] = {};
        pread(fd, buffer, sizeof(buffer) - 1, 0) > 0 ? *data = buffer : "";
        return close(end) == 0 && close(fd) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.data, "012ABEND");
    // Large files go over and back, and the free space follows.
    const double before = Free();
    std::string large(50000000, '\0');
    std::mt19937 random(1);
    for (char &c : large) {
        c = static_cast<char>(random());
    }
    ASSERT_EQ(WriteFile(Storage("big"), O_WRONLY | O_APPEND, large).error, 0);
    EXPECT_TRUE(device->Get("big") == large);
    EXPECT_TRUE(ReadFile(Storage("big")).data == large);
    // The figures are shown with about two decimal digits of a gigabyte.
    EXPECT_NEAR(before - Free(), 50e6, 15e6);
    ASSERT_EQ(RunProgram({"truncate", "-s", "0", Storage("big")}).status, 0);
    EXPECT_NEAR(Free(), before, 15e6);

    const std::pair<const char *, std::string> files[] = {
        {"old", "x\n"},
        {"long", "short\n"},
        {"f", "012ABEND"},
        {"grow", std::string("abc\0\0\0", 6)}};
    for (const bool remounted : {false, true}) {
        for (const auto &[name, contents] : files) {
            EXPECT_EQ(device->Get(name), contents) << name;
            EXPECT_EQ(ReadFile(Storage(name)).data, contents) << name;
        }
        if (!remounted) {
            ExpectNothingOpen();
            volume.reset();
            Mount();
        }
    }
}

// What a failed creation leaves in the catalogue is no file.
TEST_F(ChangeTest, DeviceThatRefusesIsToldAbout)
{
    MakeDevice();
    device->Put("dir/file", "0123456789");
    Start();
    volume->ExpectTrouble();
    const std::string made = Storage("dir/new");
    const std::string file = Storage("dir/file");
    simulator->Control("fail FileRefOpen 1 10");
    EXPECT_EQ(WriteFile(made, O_CREAT | O_WRONLY, "n").error, ECANCELED);
    EXPECT_TRUE(
        volume->WaitForDialog("Could not create a file.\nError Code : -210"));
    EXPECT_EQ(Stat(made).error, ENOENT);
    EXPECT_EQ(ReadFile(made).error, ENOENT);
    EXPECT_EQ(List(Storage("dir")).data, "file\n");
    EXPECT_EQ(WriteFile(made, O_CREAT | O_WRONLY, "n").error, 0);
    EXPECT_EQ(List(Storage("dir")).data, "file\nnew\n");

    simulator->Control("fail FileRefSetFileSize 1 10");
    EXPECT_EQ(WriteFile(file, O_WRONLY | O_TRUNC, "x").error, ECANCELED);
    EXPECT_TRUE(
        volume->WaitForDialog("Could not write a file.\nError Code : -210"));
    EXPECT_EQ(device->Get("dir/file"), "0123456789");
    EXPECT_EQ(ReadFile(file).data, "0123456789");
}

} // namespace
