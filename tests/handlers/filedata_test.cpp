// Opening, reading, writing and releasing files.
#include <fcntl.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tarnifs/filedata/staging.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

const char *const FILE_A = "/Storage/a.txt";
const char *const APP_A = "/Apps/Notes/a.txt";
const char *const APP_B = "/Apps/Notes/b.txt";

class FileData : public MountTest
{
  protected:
    void SetUp() override
    {
        media().addFile("/general_storage/noext", "x");
        populate();
        context()->tray_run = 0; // transfer records stay in the queue
    }
    uint64_t house() { return object("/Apps/Notes")->hhandle; }
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
    // A safe-save temporary, open.
    void openStaged(const std::string &path)
    {
        {
            const TarniLock lock;
            LinkChild(FindObject("/Storage"),
                      GetObjectWithFileName(path.c_str()));
        }
        ASSERT_EQ(open(path, &fi), 0);
        memoryWorld.forgetCalls();
    }
    tarni_file_info fi;
};

TEST_F(FileData, OneDeviceFileServesAllOpens)
{
    tarni_file_info two;
    ASSERT_EQ(open(FILE_A, &fi), 0);
    ASSERT_EQ(open(FILE_A, &two), 0);
    EXPECT_EQ(fi.fh, reinterpret_cast<uint64_t>(object(FILE_A)));
    EXPECT_EQ(release(FILE_A, &fi), 0);
    EXPECT_EQ(read(FILE_A, &two, 5, 7), "world");
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_close"), 0);
    // One release too many changes nothing.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(release(FILE_A, &two), 0);
        EXPECT_EQ(Value(object(FILE_A)->open_count), 0U);
    }
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_open"), 1);
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_close"), 1);
    ASSERT_EQ(open(FILE_A, &fi), 0);
    memoryWorld.failNamed("libiusb_afc_file_close", 1, -212);
    EXPECT_EQ(release(FILE_A, &fi), -212);
    expectLogged("tarnifs_release libiusb_afc_file_close failed. "
                 "path(/Storage/a.txt). ret : -212");
    expectNothingRaised();
    EXPECT_EQ(Value(object(FILE_A)->file_handle), 0U);
}

TEST_F(FileData, FilesOfAnAppShareTheirFoldersConnection)
{
    tarni_file_info two;
    ASSERT_EQ(open(APP_A, &fi), 0);
    ASSERT_EQ(open(APP_B, &two), 0);
    EXPECT_EQ(memoryWorld.calls,
              (Names{"libiusb_housearrest_init",
                     "libiusb_housearrest_openapp com.example.notes",
                     "libiusb_afc_file_open /Documents/a.txt:6",
                     "libiusb_afc_file_open /Documents/b.txt:6"}));
    EXPECT_EQ(Value(object("/Apps/Notes")->open_count), 2U);
    EXPECT_EQ(read(APP_A, &fi, 100, 0), "contents of a.txt");
    EXPECT_EQ(write(APP_B, &two, "CON", 0), 3);
    EXPECT_EQ(release(APP_A, &fi), 0);
    EXPECT_NE(house(), 0U);
    EXPECT_EQ(read(APP_B, &two, 100, 0), "CONtents of b.txt");
    EXPECT_EQ(release(APP_B, &two), 0);
    EXPECT_EQ(house(), 0U);
    EXPECT_EQ(memoryWorld.count("libiusb_housearrest_exit"), 1);
    // The last code is handed on: of the connection's end, not of the close.
    ASSERT_EQ(open(APP_A, &fi), 0);
    memoryWorld.failNamed("libiusb_housearrest_exit", 1, -32);
    EXPECT_EQ(release(APP_A, &fi), -32);
    expectLogged("tarnifs_release libiusb_housearrest_exit failed. ret : -32");
    EXPECT_EQ(house(), 0U);
    ASSERT_EQ(open(APP_A, &fi), 0);
    memoryWorld.failNamed("libiusb_afc_file_close", 1, -212);
    EXPECT_EQ(release(APP_A, &fi), 0);
    expectLogged("tarnifs_release libiusb_afc_file_close failed. "
                 "path(/Apps/Notes/a.txt). ret : -212");
}

TEST_F(FileData, AFailedOpenEndsTheConnectionOfOthersToo)
{
    ASSERT_EQ(open(APP_A, &fi), 0);
    memoryWorld.failNamed("libiusb_afc_file_open", 1, -203);
    tarni_file_info other;
    EXPECT_EQ(open(APP_B, &other), -ECANCELED);
    expectError("Could not open a file(b.txt).\nError Code : -203");
    EXPECT_EQ(house(), 0U);
    // The first file's handle went with it: it is opened anew when it is used,
    // once the device lets it.
    int ret = 0;
    memoryWorld.failNamed("libiusb_housearrest_init", 1, -32);
    read(APP_A, &fi, 5, 0, &ret);
    EXPECT_EQ(ret, -ECANCELED);
    expectError("Lost USB connection.\nService opening aborted.");
    EXPECT_EQ(read(APP_A, &fi, 5, 0), "conte");
    EXPECT_EQ(write(APP_A, &fi, "x", 0), 1);
    expectNothingRaised();
    EXPECT_EQ(release(APP_A, &fi), 0);
    EXPECT_EQ(house(), 0U);
}

TEST_F(FileData, WhatIsNotThereIsNotOpened)
{
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
    // Without a handle, without a record, without a device file.
    int ret = 0;
    read(FILE_A, &fi, 1, 0, &ret);
    EXPECT_EQ(ret, -ECANCELED);
    expectLogged("tarnifs_read fh is NULL");
    EXPECT_EQ(write(FILE_A, &fi, "x", 0), 0);
    EXPECT_EQ(release(FILE_A, &fi), 0);
    fi.fh = 1;
    for (const char *path : {"/Storage/no", FILE_A}) {
        read(path, &fi, 1, 0, &ret);
        EXPECT_EQ(ret, -ECANCELED);
        EXPECT_EQ(write(path, &fi, "x", 0), -ECANCELED);
    }
    EXPECT_EQ(release("/Storage/no", &fi), 0);
    expectLogged("tarnifs_read file_handle is NULL");
    EXPECT_EQ(memoryWorld.calls, Names());
}

TEST_F(FileData, MediaItemsAreOnlyRead)
{
    media().addFile("/iTunes_Control/x.mp3", "song");
    addMediaItem("/Media/Music/gone.mp3", "/iTunes_Control/gone.mp3");
    ASSERT_EQ(open("/Media/Music/x.mp3", &fi), 0);
    EXPECT_EQ(read("/Media/Music/x.mp3", &fi, 100, 0), "song");
    EXPECT_EQ(release("/Media/Music/x.mp3", &fi), 0);
    EXPECT_EQ(memoryWorld.calls.front(),
              "libiusb_afc_file_open /iTunes_Control/x.mp3:1");
    EXPECT_EQ(open("/Media/Music/gone.mp3", &fi), -ECANCELED);
    EXPECT_EQ(media().find("/iTunes_Control/gone.mp3"), nullptr);
    expectError("Could not open a file(gone.mp3).\nError Code : -70");
}

TEST_F(FileData, AReadToTheEndIsReported)
{
    ASSERT_EQ(open(FILE_A, &fi), 0);
    _KTL_OBJECT *a = object(FILE_A);
    a->access_time = 0;
    // How far an unbroken run of reads has come.
    const struct {
        size_t size;
        off_t offset;
        uint64_t run;
    } reads[] = {{6, 0, 6}, {3, 9, 6}, {8, 0, 8}, {2, 4, 6}, {1, 0, 1}};
    for (const auto &each : reads) {
        read(FILE_A, &fi, each.size, each.offset);
        EXPECT_EQ(Value(a->read_offset), each.run);
        EXPECT_EQ(a->reading, 0);
    }
    EXPECT_EQ(read(FILE_A, &fi, 100, 1), "ello, world");
    EXPECT_EQ(a->reading, 1);
    EXPECT_NE(Value(a->access_time), 0);
    EXPECT_EQ(release(FILE_A, &fi), 0);
    const _KTL_PIPE_DATA_BOX_FS_VALUE record = takeRecord();
    EXPECT_EQ(Value(record.kind), 1U);
    EXPECT_EQ(Value(record.size), 12U);
    EXPECT_STREQ(record.extension, "txt");
    expectLogged("tarnifs_release path /Storage/a.txt / reading 0 writing 0");
    ASSERT_EQ(open(FILE_A, &fi), 0);
    fi.keep_cache = true;
    read(FILE_A, &fi, 100, 0);
    EXPECT_EQ(release(FILE_A, &fi), 0);
    EXPECT_TRUE(gQueue.empty());
    fi.keep_cache = false;
    // Reading comes first in reports, a write in the next.
    ASSERT_EQ(open("/Storage/noext", &fi), 0);
    write("/Storage/noext", &fi, "yz", 1);
    read("/Storage/noext", &fi, 100, 0);
    EXPECT_EQ(release("/Storage/noext", &fi), 0);
    EXPECT_EQ(Value(takeRecord().kind), 1U);
    expectLogged("tarnifs_release path /Storage/noext / reading 0 writing 1");
    ASSERT_EQ(open("/Storage/noext", &fi), 0);
    EXPECT_EQ(release("/Storage/noext", &fi), 0);
    EXPECT_STREQ(takeRecord().extension, "noext");
}

TEST_F(FileData, WritingGrowsTheFileAndShrinksTheSpace)
{
    const uint64_t before = freeSpace();
    ASSERT_EQ(open(FILE_A, &fi), 0);
    _KTL_OBJECT *a = object(FILE_A);
    a->modify_time = 0;
    EXPECT_EQ(write(FILE_A, &fi, "HELLO", 0), 5); // inside
    EXPECT_EQ(freeSpace(), before);
    EXPECT_EQ(a->writing, 0);
    EXPECT_NE(Value(a->modify_time), 0);
    EXPECT_EQ(write(FILE_A, &fi, "world!!!", 7), 8); // 3 beyond
    EXPECT_EQ(freeSpace(), before - 3);
    // What was confirmed of a failed write is not lost from view.
    memoryWorld.confirmBeforeFailing = 4;
    memoryWorld.failNamed("libiusb_afc_file_write", 1, -62);
    EXPECT_EQ(write(FILE_A, &fi, "0123456789", 15), -ECANCELED);
    EXPECT_EQ(Value(a->size), 19U);
    EXPECT_EQ(freeSpace(), before - 7);
    EXPECT_EQ(media().find("/general_storage/a.txt")->data,
              "HELLO, world!!!0123");
    context()->device_info.free_capacity = 2;
    EXPECT_EQ(write(FILE_A, &fi, "12345", 19), 5);
    EXPECT_EQ(freeSpace(), 0U); // and never below
    EXPECT_EQ(release(FILE_A, &fi), 0);
    const _KTL_PIPE_DATA_BOX_FS_VALUE record = takeRecord();
    EXPECT_EQ(Value(record.kind), 2U);
    EXPECT_EQ(Value(record.size), 24U);
}

TEST_F(FileData, ASafeSaveIsStaged)
{
    const std::string temporary = "/Storage/a.txt.sb-x1";
    openStaged(temporary);
    EXPECT_EQ(write(temporary, &fi, "new ", 0), 4);
    EXPECT_EQ(write(temporary, &fi, "text", 4), 4);
    EXPECT_EQ(write(temporary, &fi, "N", 0), 1); // positions count
    EXPECT_EQ(Value(object(temporary)->type), KTL_STAGED);
    EXPECT_EQ(Value(object(temporary)->size), 8U);
    const std::string local = privateFolder() + "/a.txt.sb-x1";
    std::ifstream file(local);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
              "New text");
    EXPECT_EQ(std::filesystem::status(local).permissions(),
              std::filesystem::perms(0600));
    EXPECT_EQ(TruncateStaged(context(), temporary.c_str(), 3), 0);
    EXPECT_EQ(std::filesystem::file_size(local), 3U);
    EXPECT_EQ(release(temporary, &fi), 0);
    // Opened again, there is nothing to open on the device.
    ASSERT_EQ(open(temporary, &fi), 0);
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_open"), 0);
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_write"), 0);
    EXPECT_EQ(release(temporary, &fi), 0);
}

TEST_F(FileData, AStagedFileIsReadFromItsWholePath)
{
    object(FILE_A)->type = KTL_STAGED;
    fi.flags = O_RDWR | O_TRUNC | O_APPEND;
    ASSERT_EQ(open(FILE_A, &fi), 0);
    int ret = 0;
    read(FILE_A, &fi, 5, 0, &ret);
    EXPECT_EQ(ret, -ENOENT);
    std::filesystem::create_directory(privateFolder() + "/Storage");
    std::ofstream(privateFolder() + FILE_A) << "staged";
    EXPECT_EQ(read(FILE_A, &fi, 100, 2), "aged");
    EXPECT_EQ(release(FILE_A, &fi), 0);
}

TEST_F(FileData, StagingThatCannotBeWrittenLosesNothing)
{
    const std::string temporary = "/Storage/a.txt.sb-x2";
    openStaged(temporary);
    const std::string victim = folder.path + "/victim";
    std::ofstream(victim) << "precious";
    const std::string local = privateFolder() + "/a.txt.sb-x2";
    std::filesystem::create_symlink(victim, local);
    EXPECT_EQ(write(temporary, &fi, "evil", 100), 0);
    EXPECT_EQ(Value(object(temporary)->size), 0U);
    EXPECT_EQ(std::filesystem::file_size(victim), 8U);
    EXPECT_EQ(TruncateStaged(context(), temporary.c_str(), 0), -ELOOP);
    std::filesystem::remove(local);
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

} // namespace
