// From the private folder to the device.
#include <filesystem>
#include <fstream>

#include "tarnifs/filedata/create.h"
#include "tests/handlers/fixture.h"

namespace
{

namespace fs = std::filesystem;

class Upload : public MountTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(mount()); }
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
        return media().find("/general_storage/a.txt")->data;
    }
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
        EXPECT_TRUE(fs::exists(local()));
    }
    stage("hello");
    const size_t before = onDevice().size();
    EXPECT_EQ(uploadfileappend(context(), "/a.txt", "/general_storage/a.txt"),
              0);
    EXPECT_EQ(memoryWorld.calls.front(),
              "libiusb_afc_file_open /general_storage/a.txt:5");
    EXPECT_EQ(onDevice().substr(0, 5), "hello");
    EXPECT_EQ(onDevice().size(), before);
    EXPECT_EQ(upload(true), 0);
    EXPECT_FALSE(fs::exists(local()));
}

TEST_F(Upload, FailuresKeepTheLocalFile)
{
    const struct {
        const char *call;
        int ret;
        int closes;
        const char *line;
    } cases[] = {
        {"libiusb_afc_file_open", -212, 0,
         "uploadfile libiusb_afc_file_open failed. code : -212, path : /a.txt"},
        // The close's result counts, which passed.
        {"libiusb_afc_file_write", 0, 1,
         "uploadfile libiusb_afc_file_write failed. code : -212"},
        {"libiusb_afc_file_close", -212, 2,
         "uploadfile libiusb_afc_file_close failed. code : -212"},
    };
    for (const auto &each : cases) {
        stage("hello");
        memoryWorld.failNamed(each.call, 1, -212);
        EXPECT_EQ(upload(true), each.ret) << each.call;
        expectLogged(each.line);
        EXPECT_TRUE(fs::exists(local()));
        EXPECT_EQ(memoryWorld.count("libiusb_afc_file_close"), each.closes);
    }
    memoryWorld.violations.clear(); // the second close
    // One that can't be read: a link, a folder, nothing.
    fs::rename(local(), local("/real"));
    fs::create_symlink(local("/real"), local());
    EXPECT_EQ(upload(true), 0);
    expectLogged("uploadfile topath open failed.");
    EXPECT_TRUE(fs::exists(local()));
    fs::remove(local());
    fs::create_directory(local());
    EXPECT_EQ(upload(true), 0);
    expectLogged("uploadfile read staging file failed. offset : 0");
    EXPECT_TRUE(fs::exists(local()));
    fs::remove_all(privateFolder());
    memoryWorld.forgetCalls();
    EXPECT_EQ(upload(true), -1);
    expectLogged("uploadfile frompath(" + local() + ") file is not exist.");
    EXPECT_EQ(uploadfileappend(context(), "/none", "/general_storage/a.txt"),
              -1);
    expectLogged("uploadfileappend frompath(" + local("/none") +
                 ") file is not exist.");
    EXPECT_TRUE(fs::exists(privateFolder()));
    EXPECT_EQ(memoryWorld.calls, Names());
}

TEST_F(Upload, CounterpartsAreMadeByKind)
{
    fs::remove(privateFolder());
    EXPECT_EQ(MakeTmpPath(context(), "/dir", 0x4000), 0);
    EXPECT_TRUE(fs::is_directory(local("/dir")));
    EXPECT_EQ(MakeTmpPath(context(), "/dir", 0x4000), -1);
    std::ofstream(local("/dir/a")) << "old";
    EXPECT_EQ(MakeTmpPath(context(), "/dir/a", 0x8000 | 0777), 0);
    EXPECT_EQ(fs::file_size(local("/dir/a")), 0U);
    EXPECT_EQ(MakeTmpPath(context(), "/none/a", 0x8000), -1);
    EXPECT_EQ(MakeTmpPath(context(), "/other", 0), 0);
    EXPECT_FALSE(fs::exists(local("/other")));
}

} // namespace
