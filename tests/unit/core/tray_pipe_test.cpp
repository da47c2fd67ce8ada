#include "tarnifs/notify/tray_pipe.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/handlers/fixture.h"

namespace
{

class TrayPipe : public MountTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(mount()); }
};

_KTL_PIPE_DATA_BOX_FS_VALUE recordIn(const std::string &batch, size_t index)
{
    _KTL_PIPE_DATA_BOX_FS_VALUE record{};
    memcpy(&record, batch.data() + 18 + 22 * index, sizeof(record));
    return record;
}

TEST_F(TrayPipe, RecordsGoOutInBatchesOfThirty)
{
    TrayReader tray(trayPipePath);
    {
        // As if all had been queued at one moment.
        const std::lock_guard<std::mutex> guard(gQueueLock);
        for (uint64_t i = 0; i < 45; ++i) {
            auto *box = static_cast<PKTL_PIPE_DATA_BOX>(calloc(1, 22));
            box->kind = TRANSFER_READ;
            box->size = i;
            memcpy(box->extension, "mp4", 3);
            gQueue.push_back(box);
        }
    }
    const std::string bytes = tray.readBytes(678 + 348);
    ASSERT_EQ(bytes.size(), 678U + 348U);
    const std::string second = bytes.substr(678);
    EXPECT_EQ(bytes.substr(0, 18),
              std::string("-ncdat\0\0\0\0\0\0\0\0\x1e\0\0\0", 18));
    EXPECT_EQ(second[14], 15);
    EXPECT_EQ(Value(recordIn(bytes, 29).size), 29U);
    EXPECT_EQ(Value(recordIn(second, 14).size), 44U);
    EXPECT_STREQ(recordIn(second, 0).extension, "mp4");
}

TEST_F(TrayPipe, ExtensionsFitTheirField)
{
    TrayReader tray(trayPipePath);
    const std::pair<const char *, const char *> names[] = {
        {"movie.mp4", "mp4"},
        {"a.12345678", "12345678"},
        {"a.123456789", "123456789"},
        {"a.123456789012", "123456789"},
        {"noextension", "noextensi"},
        {"ends.", ""},
        {"a.b.c", "c"},
        {nullptr, ""},
    };
    for (const auto &name : names) {
        QueueTransfer(TRANSFER_WRITTEN, 1048576, name.first);
        const std::string batch = tray.readBytes(40);
        ASSERT_EQ(batch.size(), 40U);
        EXPECT_EQ(Value(recordIn(batch, 0).kind), 2U);
        EXPECT_EQ(Value(recordIn(batch, 0).size), 1048576U);
        EXPECT_STREQ(recordIn(batch, 0).extension, name.second);
    }
}

TEST_F(TrayPipe, WhatIsNoPipeOrNotReadIsNotWrittenTo)
{
    EXPECT_EQ(sendPipeMsg("-neon"), -ENOENT);
    const std::string file = folder.path + "/file";
    std::ofstream(file) << "precious";
    std::filesystem::create_hard_link(file, trayPipePath);
    EXPECT_EQ(sendPipeMsg("-neon"), -ENXIO);
    EXPECT_EQ(std::filesystem::file_size(file), 8U);
    std::filesystem::remove(trayPipePath);
    {
        TrayReader elsewhere(folder.path + "/real");
        std::filesystem::create_symlink(folder.path + "/real", trayPipePath);
        EXPECT_EQ(sendPipeMsg("-neon"), -ELOOP);
        EXPECT_EQ(elsewhere.read(), "");
    }
    std::filesystem::remove(trayPipePath);
    ASSERT_EQ(mkfifo(trayPipePath, 0600), 0); // without a reader
    EXPECT_EQ(sendPipeMsg("-neon"), -ENXIO);
    expectLogged("sendPipeMsg open pipe failed. errno : " +
                 std::to_string(ENXIO));
    EXPECT_EQ(sendPipeData("x", 1), -ENXIO);
    expectLogged("sendPipeData open pipe failed. errno : " +
                 std::to_string(ENXIO));
    // Full: an error and no wait.
    TrayReader tray(trayPipePath);
    const std::string chunk(65536, 'x');
    int ret = 0;
    for (int i = 0; i < 100 && ret == 0; ++i) {
        ret = sendPipeData(chunk.data(), chunk.size());
    }
    EXPECT_EQ(ret, -EAGAIN);
    expectLogged("sendPipeData write error. errno : " + std::to_string(EAGAIN));
}

} // namespace
