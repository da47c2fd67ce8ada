// From the private folder to the device.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tarnifs/filedata/create.h"
#include "tests/handlers/fixture.h"

namespace
{

class Upload : public MountTest
{
  protected:
    void SetUp() override
    {
        ASSERT_TRUE(mount());
        memoryWorld.forgetCalls();
    }
    std::string local(const std::string &name = "/a.txt")
    {
        return privateFolder() + name;
    }
    void stage(const std::string &data)
    {
        std::ofstream(local()) << data;
        memoryWorld.forgetCalls();
        forgetLog();
    }
    int upload(bool removeAfter = false)
    {
        const TarniLock lock;
        return uploadfile(context(), "/a.txt", "/general_storage/a.txt",
                          context()->afc_handle, removeAfter);
    }
    std::string onDevice()
    {
        return memoryWorld.devices[0]
            .media.find("/general_storage/a.txt")
            ->data;
    }
    bool isLocal() { return std::filesystem::exists(local()); }
};

TEST_F(Upload, GoesInPiecesOf65535Bytes)
{
    const std::vector<std::pair<size_t, int>> sizes = {
        {0, 0}, {1, 1}, {65535, 1}, {65536, 2}, {200000, 4}};
    for (const auto &[size, pieces] : sizes) {
        SCOPED_TRACE(size);
        std::string data(size, '\0');
        for (size_t i = 0; i < size; ++i) {
            data[i] = static_cast<char>(i * 31 + i / 65535);
        }
        stage(data);
        EXPECT_EQ(upload(), 0);
        EXPECT_EQ(memoryWorld.count("libiusb_afc_file_write"), pieces);
        EXPECT_EQ(memoryWorld.calls.front(),
                  "libiusb_afc_file_open /general_storage/a.txt:3");
        EXPECT_TRUE(onDevice() == data);
        EXPECT_TRUE(isLocal());
    }
    EXPECT_EQ(upload(true), 0);
    EXPECT_FALSE(isLocal());
}

TEST_F(Upload, AMissingLocalFileCostsNothing)
{
    std::filesystem::remove(privateFolder());
    EXPECT_EQ(upload(true), -1);
    expectLogged("uploadfile frompath(" + local() + ") file is not exist.");
    EXPECT_TRUE(std::filesystem::exists(privateFolder()));
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
}

TEST_F(Upload, FailuresKeepTheLocalFile)
{
    struct Case {
        const char *call;
        int ret;
        const char *line;
    };
    const Case cases[] = {
        {"libiusb_afc_file_open", -212,
         "uploadfile libiusb_afc_file_open failed. code : -212, path : /a.txt"},
        // The close's result counts, which passed.
        {"libiusb_afc_file_write", 0,
         "uploadfile libiusb_afc_file_write failed. code : -212"},
        {"libiusb_afc_file_close", -212,
         "uploadfile libiusb_afc_file_close failed. code : -212"},
    };
    for (const Case &each : cases) {
        stage("hello");
        memoryWorld.failNamed(each.call, 1, -212);
        EXPECT_EQ(upload(true), each.ret) << each.call;
        expectLogged(each.line);
        EXPECT_TRUE(isLocal());
        EXPECT_EQ(memoryWorld.count("libiusb_afc_file_close"),
                  std::string(each.call) == "libiusb_afc_file_close"  ? 2
                  : std::string(each.call) == "libiusb_afc_file_open" ? 0
                                                                      : 1);
    }
    memoryWorld.violations.clear(); // the second close
}

TEST_F(Upload, AFileThatCannotBeReadIsKept)
{
    stage("hello");
    std::filesystem::rename(local(), local("/real"));
    std::filesystem::create_symlink(local("/real"), local());
    EXPECT_EQ(upload(true), 0);
    expectLogged("uploadfile topath open failed.");
    EXPECT_TRUE(isLocal());
    std::filesystem::remove(local());
    std::filesystem::create_directory(local()); // opens, but can't be read
    EXPECT_EQ(upload(true), 0);
    expectLogged("uploadfile read staging file failed. offset : 0");
    EXPECT_TRUE(isLocal());
}

TEST_F(Upload, AppendsThroughTheMainConnection)
{
    stage("hello");
    EXPECT_EQ(uploadfileappend(context(), "/a.txt", "/general_storage/a.txt"),
              0);
    EXPECT_EQ(memoryWorld.calls.front(),
              "libiusb_afc_file_open /general_storage/a.txt:5");
    EXPECT_EQ(onDevice(), "hello");
    EXPECT_TRUE(isLocal());
    EXPECT_EQ(uploadfileappend(context(), "/none", "/general_storage/a.txt"),
              -1);
    expectLogged("uploadfileappend frompath(" + local("/none") +
                 ") file is not exist.");
}

TEST_F(Upload, CounterpartsAreMadeByKind)
{
    std::filesystem::remove(privateFolder());
    EXPECT_EQ(MakeTmpPath(context(), "/dir", 0x4000), 0);
    EXPECT_TRUE(std::filesystem::is_directory(local("/dir")));
    EXPECT_EQ(MakeTmpPath(context(), "/dir", 0x4000), -1);
    std::ofstream(local("/dir/a")) << "old";
    EXPECT_EQ(MakeTmpPath(context(), "/dir/a", 0x8000 | 0777), 0);
    EXPECT_EQ(std::filesystem::file_size(local("/dir/a")), 0U);
    EXPECT_EQ(MakeTmpPath(context(), "/none/a", 0x8000), -1);
    EXPECT_EQ(MakeTmpPath(context(), "/other", 0), 0);
    EXPECT_FALSE(std::filesystem::exists(local("/other")));
}

} // namespace
