// Pieces of the helper that need no device.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "helper/copy_ends.h"
#include "helper/launch.h"
#include "helper/mount_line.h"
#include "helper/mounts.h"
#include "helper/progress.h"
#include "helper/table.h"
#include "helper/text.h"
#include "helper/transfers.h"
#include "helper/tray_pipe.h"

using namespace helper; // NOLINT(google-build-using-namespace)

TEST(Mounts, table_and_command_lines)
{
    const std::vector<Mount> mounts = parseMountTable(
        "22 1 0:20 / /proc rw - proc proc rw\n"
        "43 27 0:40 / /home/a/Anna's\\040iPhone rw,nosuid - fuse.quorvelfs "
        "quorvelfs rw,user_id=1000,group_id=1000\n"
        "44 27 0:41 / /mnt/b\\134c rw shared:1 - fuse.quorvelfs x rw\n"
        "45 27 0:42 / /mnt/d rw - fuse.sshfs quorvelfs rw,user_id=7\n"
        "broken - fuse.quorvelfs\n");
    ASSERT_EQ(mounts.size(), 2U);
    EXPECT_EQ(mounts[0].point, "/home/a/Anna's iPhone");
    EXPECT_EQ(mounts[0].owner, 1000U);
    EXPECT_EQ(mounts[1].point, "/mnt/b\\c");

    using std::string_literals::operator""s;
    struct {
        std::string command;
        bool ours;
        uint32_t location;
    } const commands[] = {
        {"/usr/bin/quorvelfs\0/a/b c\0-devopt\0"
         "20123456\0"s,
         true, 20123456},
        {"quorvelfs\0-o\0x=/q\0/a/b c/\0-f\0-devopt\0-1\0"s, true, 4294967295U},
        {"quorvelfs\0./b c\0-devopt\0"
         "7\0"s,
         true, 7},
        {"quorvelfs\0/a/b c\0-oro,location_id=9,uid=1\0-devopt\0"
         "0\0"s,
         true, 9},
        {"quorvelfs\0/a/other\0-devopt\0"
         "7\0"s,
         false, 0},
        {"vi\0/a/b c\0-devopt\0"
         "7\0"s,
         false, 0},
        {"quorvelfs\0/a/b c\0-devopt\0x7\0"s, false, 0},
        {""s, false, 0},
    };
    for (const auto &one : commands) {
        uint32_t location = 0;
        EXPECT_EQ(parseServerCommand(one.command, "/a/b c", location), one.ours)
            << one.command;
        EXPECT_EQ(location, one.location);
    }
}

TEST(Text, for_people)
{
    EXPECT_EQ(printable("a\033[2Jb\n\xff\u202ec Ä写"), "a?[2Jb???c Ä写");
    EXPECT_EQ(columns("Ä写"), 3U);
    EXPECT_EQ(cutTo("写真写真", 5), "写真…");
    EXPECT_EQ(bytesText(999), "999 B");
    EXPECT_EQ(bytesText(999'999'999), "1.0 GB");
    EXPECT_EQ(secondsText(4.24), "4.2 s");
    EXPECT_EQ(secondsText(59.7), "1:00");
    EXPECT_EQ(countText(1234567, "file", "files"), "1,234,567 files");
    EXPECT_EQ(tableText({{"A", "B"}, {"写", "b"}}), "A   B\n写  b\n");
    EXPECT_EQ(fill("{} and {}", {"{}", "x"}), "{} and x");

    Progress progress(1000);
    progress.line(600, 500, 10, "a");
    const std::string line = progress.line(750, 500, 11, "a");
    EXPECT_NE(line.find("75 %  750 B of 1.0 kB  150 B/s  1.7 s left"),
              std::string::npos)
        << line;
}

TEST(Transfers, are_added_up)
{
    Transfers transfers;
    transfers.take({News::BusyOff, {}, 0}, 1);
    transfers.take({News::BusyOn, {}, 0}, 2);
    transfers.take({News::BusyOn, {}, 0}, 3);
    transfers.take({News::BusyOff, {}, 0}, 4);
    transfers.take({News::Transfers, {{1, 3000, "a"}, {2, 1, "b"}}, 0}, 9);
    const std::string line = transfers.line(12);
    EXPECT_TRUE(line.starts_with("busy since ")) << line;
    EXPECT_EQ(line.substr(line.find(" (")),
              " (10 s) · read 1 file (3.0 kB), written 1 file (1 B) · 600 "
              "B/s");
    EXPECT_EQ(transfers.takeLatest().text(),
              "read 1 file (3.0 kB), written 1 file (1 B)");
    EXPECT_TRUE(transfers.takeLatest().empty());
    transfers.volumes(1);
    EXPECT_TRUE(transfers.isBusy());
    transfers.volumes(0);
    EXPECT_FALSE(transfers.isBusy());
}

TEST(TrayPipe, has_one_owner)
{
    char folder[] = "/tmp/quorvel-pipe.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string path = std::string(folder) + "/pipe";
    EXPECT_FALSE(trayPipeOwned(path));
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); // its owner was killed
    {
        TrayPipe first;
        ASSERT_TRUE(first.open(path).ok());
        EXPECT_TRUE(trayPipeOwned(path));
        TrayPipe second;
        EXPECT_EQ(second.open(path).status, Status::PipeUnusable);
        const int writer = open(path.c_str(), O_WRONLY | O_NONBLOCK);
        EXPECT_EQ(write(writer, "-neon", 5), 5);
        close(writer);
        char text[8] = {};
        EXPECT_EQ(read(first.descriptor(), text, sizeof(text)), 5);
        // Open for writing too, so that it is empty and not at its end.
        EXPECT_EQ(read(first.descriptor(), text, sizeof(text)), -1);
        second.close();
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    // What is no pipe stays as it is.
    close(open(path.c_str(), O_CREAT | O_WRONLY, 0600));
    TrayPipe third;
    EXPECT_NE(third.open(path).sentence.find("not a pipe"), std::string::npos);
    third.close();
    EXPECT_TRUE(std::filesystem::exists(path));
    std::filesystem::remove_all(folder);
}

TEST(Launch, refusals_that_a_test_cannot_bring_about)
{
    EXPECT_EQ(checkMachine("/nonexistent/fuse").status, Status::NoFuse);
    Device device;
    device.name = "Anna";
    // By the status that quorvelfs ends with; its sentence is passed on.
    const std::pair<int, Status> cases[] = {
        {1, Status::StartFailed},     {2, Status::Usage},
        {4, Status::NoFuse},          {5, Status::NotAllowed},
        {6, Status::MountPointInUse}, {7, Status::StartFailed}};
    for (const auto &[ended, status] : cases) {
        const Result result =
            explainLaunch(device, "/x", ended, "first\nquorvelfs: the why\n");
        EXPECT_EQ(result.status, status) << ended;
        EXPECT_EQ(result.sentence.find("the why") != std::string::npos,
                  ended == 1 || ended == 2 || ended == 5);
    }
    EXPECT_EQ(escapeOption("a,b\\c\n"), "a\\,b\\\\c?");
}

TEST(MountLine, what_mount_and_fstab_hand_on)
{
    struct {
        std::vector<std::string> words;
        const char *meant; // device|point|options|usbmux, or the refusal
    } const cases[] = {
        {{"Anna's iPhone", "/mnt", "-o",
          "rw,noauto,user=anna,noexec,nosuid,nodev"},
         "Anna's iPhone|/mnt|rw,noexec,nosuid,nodev|"},
        {{"none", "/mnt", "-sv", "-o",
          "defaults,nofail,_netdev,x-systemd.automount,x-systemd.device-timeout"
          "=5,relatime,ro,silly,usbmux=UNIX:/a\\,b"},
         "|/mnt|ro,usbmux=UNIX:/a\\,b|UNIX:/a,b"},
        {{"quorvelfs", "/mnt", "-t", "quorvelfs", "-o", "device=0000,bogus"},
         "0000|/mnt|bogus|"},
        {{"-n", "20123456", "-o", "ro", "/mnt", "-o", "allow_other,uid=1000"},
         "20123456|/mnt|ro,allow_other,uid=1000|"},
        {{"none", "/mnt", "-o", "location_id=20123456"}, "20123456|/mnt||"},
        {{"a", "/mnt", "-o", "device=b"}, "contradict"},
        {{"a", "/mnt", "-o", "remount,ro"}, "not possible"},
        {{"a", "/mnt", "-o", "wait=-1"}, "wait needs"},
        {{"a", "/mnt", "-t", "ext4"}, "-t ext4"},
        {{"a", "/mnt", "-o"}, "needs a value"},
        {{"a", "/mnt", "-x"}, "unknown option -x"},
        {{"a", "/mnt", "b"}, "too many"},
        {{"a"}, "are needed"},
    };
    for (const auto &one : cases) {
        MountLine line;
        const std::string problem = parseMountLine(one.words, line);
        const std::string meant = problem.empty()
                                      ? line.device + "|" + line.point + "|" +
                                            line.options + "|" + line.usbmux
                                      : problem;
        if (problem.empty()) {
            EXPECT_EQ(meant, one.meant);
        } else {
            EXPECT_NE(meant.find(one.meant), std::string::npos) << meant;
        }
    }
}

TEST(CopyEnds, device_paths)
{
    std::string device;
    std::string path;
    EXPECT_TRUE(splitDevicePath("Anna's: 2:/Media/a:/b", &device, &path));
    EXPECT_EQ(device + "|" + path, "Anna's: 2|/Media/a:/b");
    for (const char *plain : {"/a:/b", "a", "./a:/b", ":/b", "a:b"}) {
        EXPECT_FALSE(splitDevicePath(plain, &device, &path)) << plain;
    }
    CopyWorld world;
    world.devices.resize(1);
    world.devices[0].udid = "U1";
    world.devices[0].name = "Anna";
    world.devices[0].location = 7;
    world.mounts = {{"/m/Anna", 0, 0, 7}};
    struct {
        const char *text;
        const char *path;
        Status status;
    } const cases[] = {
        {"Anna:/Storage/x/", "/m/Anna/Storage/x", Status::Ok},
        {"7:/", "/m/Anna", Status::Ok},
        {"U:/../../etc", "/m/Anna/etc", Status::Ok},
        {"/m/Anna/Storage", "/m/Anna/Storage", Status::Ok},
        {"Bert:/x", "", Status::NotMounted},
    };
    for (const auto &one : cases) {
        CopyEnd end;
        EXPECT_EQ(resolveEnd(world, one.text, end).status, one.status);
        EXPECT_EQ(end.path, one.path);
        EXPECT_EQ(end.udid, one.status == Status::Ok ? "U1" : "");
    }
}
