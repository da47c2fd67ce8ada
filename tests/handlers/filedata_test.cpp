// Opening, reading, writing and releasing files of the media file system.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tarnifs/filedata/staging.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

class FileData : public MountTest
{
  protected:
    void SetUp() override
    {
        prepare();
        context()->tray_run = 0; // transfer records stay in the queue
    }
    void prepare()
    {
        media().addFile("/general_storage/a.txt", "hello, world");
        media().addFile("/general_storage/noext", "x");
        ASSERT_TRUE(mount());
        list("/");
        list("/Storage");
        memoryWorld.forgetCalls();
    }
    MemoryTree &media() { return memoryWorld.devices[0].media; }
    std::string onDevice(const std::string &name)
    {
        return media().find("/general_storage/" + name)->data;
    }
    // The transfer record that waits, and no further one.
    _KTL_PIPE_DATA_BOX_FS_VALUE takeRecord()
    {
        const std::lock_guard<std::mutex> guard(gQueueLock);
        _KTL_PIPE_DATA_BOX_FS_VALUE record{};
        EXPECT_EQ(gQueue.size(), 1U);
        if (!gQueue.empty()) {
            record = *gQueue.front();
            free(gQueue.front());
            gQueue.pop_front();
        }
        return record;
    }
    size_t waiting()
    {
        const std::lock_guard<std::mutex> guard(gQueueLock);
        return gQueue.size();
    }
    uint64_t freeSpace() { return context()->device_info.free_capacity; }
};

TEST_F(FileData, OneDeviceFileServesAllOpens)
{
    tarni_file_info one;
    tarni_file_info two;
    ASSERT_EQ(open("/Storage/a.txt", &one), 0);
    ASSERT_EQ(open("/Storage/a.txt", &two), 0);
    EXPECT_EQ(one.fh, reinterpret_cast<uint64_t>(object("/Storage/a.txt")));
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_open"), 1);
    EXPECT_EQ(release("/Storage/a.txt", &one), 0);
    EXPECT_EQ(read("/Storage/a.txt", &two, 5, 7), "world");
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_close"), 0);
    EXPECT_EQ(release("/Storage/a.txt", &two), 0);
    EXPECT_EQ(memoryWorld.open().find("file"), std::string::npos);
    EXPECT_EQ(Value(object("/Storage/a.txt")->open_count), 0U);
    // One release too many changes nothing.
    EXPECT_EQ(release("/Storage/a.txt", &two), 0);
    EXPECT_EQ(Value(object("/Storage/a.txt")->open_count), 0U);
}

TEST_F(FileData, WhatIsNotThereIsNotOpened)
{
    tarni_file_info fi;
    EXPECT_EQ(open("/Storage/no", &fi), -ENOENT);
    expectLogged("tarnifs_open path(/Storage/no) object not EXIST");
    {
        const TarniLock lock;
        GetObjectWithFileName("/Media/Music/100%s.mp3");
    }
    EXPECT_EQ(open("/Media/Music/100%s.mp3", &fi), -ECANCELED);
    EXPECT_EQ(fi.fh, 0U);
    expectLogged("tarnifs_open Unexpected file! path(/Media/Music/100%s.mp3)");
    expectError("Unexpected file! path\n/Media/Music/100%s.mp3");
    char byte = 0;
    EXPECT_EQ(tarni_opers.read("/Storage/a.txt", &byte, 1, 0, &fi), -ECANCELED);
    expectLogged("tarnifs_read fh is NULL");
    EXPECT_EQ(tarni_opers.write("/Storage/a.txt", &byte, 1, 0, &fi), 0);
    EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
    fi.fh = 1;
    EXPECT_EQ(tarni_opers.read("/Storage/no", &byte, 1, 0, &fi), -ECANCELED);
    EXPECT_EQ(tarni_opers.write("/Storage/no", &byte, 1, 0, &fi), -ECANCELED);
    EXPECT_EQ(release("/Storage/no", &fi), 0);
    EXPECT_EQ(tarni_opers.read("/Storage/a.txt", &byte, 1, 0, &fi), -ECANCELED);
    expectLogged("tarnifs_read file_handle is NULL");
    EXPECT_EQ(tarni_opers.write("/Storage/a.txt", &byte, 1, 0, &fi),
              -ECANCELED);
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
}

TEST_F(FileData, MediaItemsAreOnlyRead)
{
    media().addFile("/DCIM/1.JPG", "jpeg");
    addMediaItem("/Media/Photo/1.JPG", "/DCIM/1.JPG");
    addMediaItem("/Media/Photo/gone.JPG", "/DCIM/gone.JPG");
    memoryWorld.forgetCalls();
    tarni_file_info fi;
    ASSERT_EQ(open("/Media/Photo/1.JPG", &fi), 0);
    EXPECT_EQ(read("/Media/Photo/1.JPG", &fi, 100, 0), "jpeg");
    EXPECT_EQ(release("/Media/Photo/1.JPG", &fi), 0);
    EXPECT_EQ(memoryWorld.calls.front(), "libiusb_afc_file_open /DCIM/1.JPG:1");
    EXPECT_EQ(open("/Media/Photo/gone.JPG", &fi), -ECANCELED);
    EXPECT_EQ(media().find("/DCIM/gone.JPG"), nullptr);
    expectError("Could not open a file(gone.JPG).\nError Code : -70");
}

TEST_F(FileData, AReadToTheEndIsReported)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
    object("/Storage/a.txt")->access_time = 0;
    EXPECT_EQ(read("/Storage/a.txt", &fi, 6, 0), "hello,");
    EXPECT_EQ(read("/Storage/a.txt", &fi, 3, 9), "rld"); // leaves a gap
    EXPECT_EQ(object("/Storage/a.txt")->reading, 0);
    EXPECT_EQ(Value(object("/Storage/a.txt")->read_offset), 6U);
    EXPECT_EQ(read("/Storage/a.txt", &fi, 100, 6), " world");
    EXPECT_EQ(object("/Storage/a.txt")->reading, 1);
    EXPECT_NE(Value(object("/Storage/a.txt")->access_time), 0);
    EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
    const _KTL_PIPE_DATA_BOX_FS_VALUE record = takeRecord();
    EXPECT_EQ(Value(record.kind), 1U);
    EXPECT_EQ(Value(record.size), 12U);
    EXPECT_STREQ(record.extension, "txt");
    expectLogged("tarnifs_release path /Storage/a.txt / reading 0 writing 0");
}

TEST_F(FileData, TheRunOfReadsFollowsTheReader)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
    _KTL_OBJECT *a = object("/Storage/a.txt");
    read("/Storage/a.txt", &fi, 8, 0);
    read("/Storage/a.txt", &fi, 2, 4); // back
    EXPECT_EQ(Value(a->read_offset), 6U);
    read("/Storage/a.txt", &fi, 1, 0); // from the start again
    EXPECT_EQ(Value(a->read_offset), 1U);
    fi.keep_cache = true;
    read("/Storage/a.txt", &fi, 100, 0);
    EXPECT_EQ(a->reading, 0);
    EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
    EXPECT_EQ(waiting(), 0U);
}

TEST_F(FileData, WritingGrowsTheFileAndShrinksTheSpace)
{
    const uint64_t before = freeSpace();
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
    object("/Storage/a.txt")->modify_time = 0;
    EXPECT_EQ(write("/Storage/a.txt", &fi, "HELLO", 0), 5); // inside
    EXPECT_EQ(freeSpace(), before);
    EXPECT_EQ(object("/Storage/a.txt")->writing, 0);
    EXPECT_NE(Value(object("/Storage/a.txt")->modify_time), 0);
    EXPECT_EQ(write("/Storage/a.txt", &fi, "world!!!", 7), 8); // 3 beyond
    EXPECT_EQ(freeSpace(), before - 3);
    EXPECT_EQ(Value(object("/Storage/a.txt")->size), 15U);
    EXPECT_EQ(onDevice("a.txt"), "HELLO, world!!!");
    EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
    const _KTL_PIPE_DATA_BOX_FS_VALUE record = takeRecord();
    EXPECT_EQ(Value(record.kind), 2U);
    EXPECT_EQ(Value(record.size), 15U);
}

TEST_F(FileData, FreeSpaceNeverFallsBelowNothing)
{
    context()->device_info.free_capacity = 2;
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
    EXPECT_EQ(write("/Storage/a.txt", &fi, "12345", 12), 5);
    EXPECT_EQ(freeSpace(), 0U);
    EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
}

TEST_F(FileData, ReadingComesFirstInReports)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/noext", &fi), 0);
    write("/Storage/noext", &fi, "yz", 1);
    read("/Storage/noext", &fi, 100, 0);
    EXPECT_EQ(release("/Storage/noext", &fi), 0);
    EXPECT_EQ(Value(takeRecord().kind), 1U);
    expectLogged("tarnifs_release path /Storage/noext / reading 0 writing 1");
    ASSERT_EQ(open("/Storage/noext", &fi), 0);
    EXPECT_EQ(release("/Storage/noext", &fi), 0);
    const _KTL_PIPE_DATA_BOX_FS_VALUE record = takeRecord();
    EXPECT_EQ(Value(record.kind), 2U);
    EXPECT_STREQ(record.extension, "noext");
}

TEST_F(FileData, DeviceFailuresTellWhatHappened)
{
    struct Case {
        const char *call;
        int code;
        const char *line;
        const char *text;
    };
    const Case cases[] = {
        {"libiusb_afc_file_open", -32,
         "tarnifs_open libiusb_afc_file_open failed. "
         "path(/general_storage/a.txt) ret : -32",
         "Lost USB connection.\nOpening file(a.txt) aborted."},
        {"libiusb_afc_file_open", -30,
         "tarnifs_open libiusb_afc_file_open failed. "
         "path(/general_storage/a.txt) ret : -30",
         "Lost USB connection.\nOpening file(a.txt) aborted."},
        {"libiusb_afc_file_open", -210,
         "tarnifs_open libiusb_afc_file_open failed. "
         "path(/general_storage/a.txt) ret : -210",
         "Could not open a file(a.txt).\nError Code : -210"},
        {"libiusb_afc_file_read", -32,
         "tarnifs_read libiusb_afc_file_read fail. Err=-32, "
         "path(/Storage/a.txt)",
         "Lost USB connection.\nReading aborted."},
        {"libiusb_afc_file_read", -30,
         "tarnifs_read libiusb_afc_file_read fail. Err=-30, "
         "path(/Storage/a.txt)",
         "Lost USB connection.\nReading aborted."},
        {"libiusb_afc_file_read", -62,
         "tarnifs_read libiusb_afc_file_read fail. Err=-62, "
         "path(/Storage/a.txt)",
         "Could not read a file.\nError Code : -62"},
        {"libiusb_afc_file_write", -32,
         "tarnifs_write libiusb_afc_file_write failed. path(/Storage/a.txt) "
         "ret -32",
         "Lost USB connection.\nWriting aborted."},
        {"libiusb_afc_file_write", -30,
         "tarnifs_write libiusb_afc_file_write failed. path(/Storage/a.txt) "
         "ret -30",
         "Could not write a file.\nError Code : -30"},
    };
    for (const Case &each : cases) {
        SCOPED_TRACE(each.line);
        forgetLog();
        memoryWorld.failNamed(each.call, 1, each.code);
        tarni_file_info fi;
        int ret = open("/Storage/a.txt", &fi);
        if (ret == 0) {
            read("/Storage/a.txt", &fi, 5, 0, &ret);
        }
        if (ret >= 0) {
            ret = write("/Storage/a.txt", &fi, "x", 0);
        }
        EXPECT_EQ(ret, -ECANCELED);
        expectLogged(each.line);
        expectError(each.text);
        release("/Storage/a.txt", &fi);
    }
    memoryWorld.failNamed("libiusb_afc_file_close", 1, -212);
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
    EXPECT_EQ(release("/Storage/a.txt", &fi), -212);
    expectLogged("tarnifs_release libiusb_afc_file_close failed. "
                 "path(/Storage/a.txt). ret : -212");
    expectNothingRaised();
    EXPECT_EQ(Value(object("/Storage/a.txt")->file_handle), 0U);
}

TEST_F(FileData, APartlyConfirmedWriteIsNotLostFromView)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
    const uint64_t before = freeSpace();
    memoryWorld.confirmBeforeFailing = 4;
    memoryWorld.failNamed("libiusb_afc_file_write", 1, -62);
    EXPECT_EQ(write("/Storage/a.txt", &fi, "0123456789", 12), -ECANCELED);
    EXPECT_EQ(Value(object("/Storage/a.txt")->size), 16U);
    EXPECT_EQ(freeSpace(), before - 4);
    EXPECT_EQ(onDevice("a.txt"), "hello, world0123");
    EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
    takeRecord();
}

TEST_F(FileData, ASafeSaveIsStaged)
{
    const std::string temporary = "/Storage/a.txt.sb-x1";
    {
        const TarniLock lock;
        LinkChild(FindObject("/Storage"),
                  GetObjectWithFileName(temporary.c_str()));
    }
    tarni_file_info fi;
    ASSERT_EQ(open(temporary, &fi), 0);
    memoryWorld.forgetCalls();
    EXPECT_EQ(write(temporary, &fi, "new ", 0), 4);
    EXPECT_EQ(write(temporary, &fi, "text", 4), 4);
    EXPECT_EQ(write(temporary, &fi, "N", 0), 1); // positions count
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    EXPECT_EQ(Value(object(temporary)->type), KTL_STAGED);
    EXPECT_EQ(Value(object(temporary)->size), 8U);

    const std::string local = privateFolder() + "/a.txt.sb-x1";
    std::ifstream file(local);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
              "New text");
    struct stat st {
    };
    ASSERT_EQ(stat(local.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777U, 0600U);
    EXPECT_EQ(TruncateStaged(context(), temporary.c_str(), 3), 0);
    EXPECT_EQ(std::filesystem::file_size(local), 3U);
    EXPECT_EQ(release(temporary, &fi), 0);

    // Opened again, there is nothing to open on the device.
    memoryWorld.forgetCalls();
    ASSERT_EQ(open(temporary, &fi), 0);
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    EXPECT_EQ(release(temporary, &fi), 0);
}

TEST_F(FileData, AStagedFileIsReadFromItsWholePath)
{
    _KTL_OBJECT *a = object("/Storage/a.txt");
    a->type = KTL_STAGED;
    tarni_file_info fi;
    fi.flags = O_RDWR | O_TRUNC | O_APPEND;
    ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
    int ret = 0;
    read("/Storage/a.txt", &fi, 5, 0, &ret);
    EXPECT_EQ(ret, -ENOENT);
    std::filesystem::create_directory(privateFolder() + "/Storage");
    std::ofstream(privateFolder() + "/Storage/a.txt") << "staged";
    EXPECT_EQ(read("/Storage/a.txt", &fi, 100, 2), "aged");
    EXPECT_EQ(read("/Storage/a.txt", &fi, 100, 0), "staged");
    EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
}

TEST_F(FileData, StagingThatCannotBeWrittenLosesNothing)
{
    const std::string temporary = "/Storage/a.txt.sb-x2";
    {
        const TarniLock lock;
        LinkChild(FindObject("/Storage"),
                  GetObjectWithFileName(temporary.c_str()));
    }
    tarni_file_info fi;
    ASSERT_EQ(open(temporary, &fi), 0);
    const std::string victim = folder.path + "/victim";
    std::ofstream(victim) << "precious";
    const std::string local = privateFolder() + "/a.txt.sb-x2";
    std::filesystem::create_symlink(victim, local);
    EXPECT_EQ(write(temporary, &fi, "evil", 100), 0);
    EXPECT_EQ(Value(object(temporary)->size), 0U);
    EXPECT_EQ(std::filesystem::file_size(victim), 8U);
    EXPECT_EQ(TruncateStaged(context(), temporary.c_str(), 0), -ELOOP);
    std::filesystem::remove(local);
    EXPECT_EQ(release(temporary, &fi), 0);
    EXPECT_EQ(waiting(), 0U);
}

TEST_F(FileData, AFullDiskUnderTheStagingIsToldAndCountsWhatFit)
{
    const std::string temporary = "/Storage/a.txt.sb-x3";
    {
        const TarniLock lock;
        LinkChild(FindObject("/Storage"),
                  GetObjectWithFileName(temporary.c_str()));
    }
    tarni_file_info fi;
    ASSERT_EQ(open(temporary, &fi), 0);
    // A limit on file sizes fails writes as a full disk does.
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{4, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const int first = write(temporary, &fi, "12345678", 0);
    const int second = write(temporary, &fi, "5678", 4);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(first, 4);
    EXPECT_EQ(second, -EFBIG);
    EXPECT_EQ(Value(object(temporary)->size), 4U);
    EXPECT_EQ(release(temporary, &fi), 0);
    takeRecord();
}

TEST_F(FileData, EveryFailingCallLeavesAVolumeThatWorks)
{
    unmount();
    forEachDeviceFailure(
        {-32, -30, -62, -212}, [this] { prepare(); },
        [this](int code) {
            tarni_file_info fi;
            int ret = open("/Storage/a.txt", &fi);
            bool failed = ret != 0;
            if (!failed) {
                read("/Storage/a.txt", &fi, 100, 0, &ret);
                failed = ret < 0;
                EXPECT_TRUE(failed || ret == 12);
                ret = write("/Storage/a.txt", &fi, "x", 12);
                failed = failed || ret < 0;
            }
            EXPECT_EQ(failed, !raised().text.empty());
            ret = release("/Storage/a.txt", &fi);
            EXPECT_TRUE(ret == 0 || ret == code);
            EXPECT_EQ(Value(object("/Storage/a.txt")->open_count), 0U);
            EXPECT_EQ(Value(object("/Storage/a.txt")->file_handle), 0U);
            memoryWorld.heal();
            ASSERT_EQ(open("/Storage/a.txt", &fi), 0);
            EXPECT_EQ(read("/Storage/a.txt", &fi, 5, 0), "hello");
            EXPECT_EQ(release("/Storage/a.txt", &fi), 0);
        });
}

} // namespace
