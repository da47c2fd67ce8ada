// Writing and cutting: what the volume shows afterwards is what the device has.
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

class ChangeTest : public MountedTest
{
  protected:
    // The volume's free bytes.
    double Free() const
    {
        const Outcome outcome = Access([&](std::string *data) {
            struct statvfs st {
            };
            if (statvfs(volume->Path().c_str(), &st) != 0) {
                return errno;
            }
            *data = std::to_string(st.f_bavail * st.f_frsize);
            return 0;
        });
        return outcome.error == 0 ? std::stod(outcome.data) : -1;
    }

    void Remount()
    {
        volume.reset();
        Mount();
    }
};

std::string Pattern(size_t size)
{
    std::string data(size, '\0');
    uint32_t state = 12345;
    for (char &c : data) {
        state = state * 1664525U + 1013904223U;
        c = static_cast<char>(state >> 24U);
    }
    return data;
}

TEST_F(ChangeTest, ShellOverwritesLeaveExactlyTheNewBytes)
{
    MakeDevice();
    device->Put("old", "a much longer text than the new one\n");
    device->Put("long", std::string(100000, 'l'));
    Start();
    Spill(work + "/short", "short\n");
    EXPECT_EQ(
        RunProgram({"sh", "-c", "echo x > '" + Storage("old") + "'"}).status,
        0);
    EXPECT_EQ(RunProgram({"cp", work + "/short", Storage("long")}).status, 0);
    EXPECT_EQ(device->Get("old"), "x\n");
    EXPECT_EQ(device->Get("long"), "short\n");
    EXPECT_EQ(ReadFile(Storage("old")).data, "x\n");
    EXPECT_EQ(ReadFile(Storage("long")).data, "short\n");
}

TEST_F(ChangeTest, TruncationReachesTheDevice)
{
    MakeDevice();
    device->Put("f", "0123456789");
    device->Put("grow", "abc");
    Start();
    EXPECT_EQ(RunProgram({"truncate", "-s", "5", Storage("f")}).status, 0);
    EXPECT_EQ(RunProgram({"truncate", "-s", "6", Storage("grow")}).status, 0);
    const std::string path = Storage("f");
    EXPECT_EQ(Access([&](std::string *) {
                  return truncate(path.c_str(), 4) == 0 ? 0 : errno;
              }).error,
              0);
    EXPECT_EQ(device->Get("f"), "0123");
    EXPECT_EQ(device->Get("grow"), std::string("abc\0\0\0", 6));
    EXPECT_TRUE(
        Eventually([this] { return simulator->Number("open_files") == 0; }));
    Remount();
    EXPECT_EQ(ReadFile(Storage("f")).data, "0123");
    EXPECT_EQ(ReadFile(Storage("grow")).data.size(), 6U);
}

TEST_F(ChangeTest, WritesInsideAndAtTheEnd)
{
    MakeDevice();
    device->Put("f", "0123456789");
    Start();
    const std::string path = Storage("f");
    const Outcome outcome = Access([&](std::string *data) {
        const int fd = open(path.c_str(), O_RDWR);
        if (fd < 0 || pwrite(fd, "AB", 2, 3) != 2) {
            return errno;
        }
        const int end = open(path.c_str(), O_WRONLY | O_APPEND);
        if (end < 0 || write(end, "END", 3) != 3) {
            return errno;
        }
        char buffer[32] = {};
        const ssize_t n = pread(fd, buffer, sizeof(buffer), 0);
        data->assign(buffer, n < 0 ? 0 : static_cast<size_t>(n));
        return close(end) == 0 && close(fd) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "012AB56789END");
    EXPECT_EQ(device->Get("f"), "012AB56789END");
}

TEST_F(ChangeTest, LargeFileGoesOverAndBack)
{
    MakeDevice();
    device->Put("big", "");
    Start();
    const std::string data = Pattern(20 * 1024 * 1024 + 17);
    ASSERT_EQ(WriteFile(Storage("big"), O_WRONLY | O_TRUNC, data).error, 0);
    EXPECT_TRUE(device->Get("big") == data);
    EXPECT_TRUE(ReadFile(Storage("big")).data == data);
}

TEST_F(ChangeTest, FreeSpaceFollows)
{
    MakeDevice({"--capacity", "64000000000", "--free", "32000000000"});
    device->Put("f", std::string(1000000, 'x'));
    Start();
    const double before = Free();
    const std::string more(50000000, 'y');
    ASSERT_EQ(WriteFile(Storage("f"), O_WRONLY | O_APPEND, more).error, 0);
    // The figures are shown with about two decimal digits of a gigabyte.
    EXPECT_NEAR(before - Free(), 50e6, 15e6);
    ASSERT_EQ(RunProgram({"truncate", "-s", "0", Storage("f")}).status, 0);
    EXPECT_NEAR(Free(), before, 15e6);
}

// What a failed creation leaves in the catalogue is no file.
TEST_F(ChangeTest, FileThatCouldNotBeMadeIsNotThere)
{
    MakeDevice();
    device->Put("dir/file", "x");
    Start();
    volume->ExpectTrouble();
    simulator->Control("fail FileRefOpen 1 10");
    EXPECT_EQ(WriteFile(Storage("dir/new"), O_CREAT | O_WRONLY, "n").error,
              ECANCELED);
    EXPECT_TRUE(
        volume->WaitForDialog("Could not create a file.\nError Code : -210"));
    EXPECT_EQ(Stat(Storage("dir/new")).error, ENOENT);
    EXPECT_EQ(ReadFile(Storage("dir/new")).error, ENOENT);
    EXPECT_EQ(List(Storage("dir")).data, "file\n");
    EXPECT_EQ(WriteFile(Storage("dir/new"), O_CREAT | O_WRONLY, "n").error, 0);
    EXPECT_EQ(List(Storage("dir")).data, "file\nnew\n");
}

TEST_F(ChangeTest, DeviceThatCannotWriteIsToldAbout)
{
    MakeDevice();
    device->Put("f", "0123456789");
    Start();
    volume->ExpectTrouble();
    simulator->Control("fail FileRefSetFileSize 1 10");
    EXPECT_EQ(WriteFile(Storage("f"), O_WRONLY | O_TRUNC, "x").error,
              ECANCELED);
    EXPECT_TRUE(
        volume->WaitForDialog("Could not write a file.\nError Code : -210"));
    EXPECT_EQ(device->Get("f"), "0123456789");
    EXPECT_EQ(ReadFile(Storage("f")).data, "0123456789");

    simulator->Control("space 0");
    EXPECT_EQ(
        WriteFile(Storage("f"), O_WRONLY | O_APPEND, std::string(100000, 'z'))
            .error,
        ECANCELED);
    EXPECT_TRUE(
        volume->WaitForDialog("Could not write a file.\nError Code : -62"));
}

} // namespace
