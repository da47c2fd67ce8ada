// Devices that go away, go silent or answer nonsense: every call ends, the
// connection is given up, and the next call works as soon as the device is
// there.
#include "sim.h"

class Fault : public DeviceTest
{
  protected:
    Setting timeout{"QUORVEL_TIMEOUT_MS", "700"};

    // Until here a call on a lost connection has to be over.
    static constexpr int64_t soon = 500; // the limit of a wait is more

    int readCode(libiusb_file file, uint64_t offset,
                 uint32_t length = 4096) const
    {
        std::string buffer(length, '\0');
        uint32_t count = 0;
        return libiusb_afc_file_read(afc, file, buffer.data(), length, offset,
                                     &count);
    }
    // A file that was open when the connection went is only good for closing.
    void expectLost(libiusb_file file) const
    {
        EXPECT_EQ(readCode(file, 0, 0), LIBIUSB_ERROR_LOST_CONNECTION);
        EXPECT_EQ(readCode(file, 0), LIBIUSB_ERROR_LOST_CONNECTION);
        EXPECT_EQ(libiusb_afc_file_close(afc, file),
                  LIBIUSB_ERROR_LOST_CONNECTION);
        EXPECT_EQ(libiusb_afc_file_close(afc, file), LIBIUSB_ERROR_INVALID_ARG);
    }
    // The volume works again: a listing, and a file to its last byte.
    void expectWorking() const
    {
        libiusb_afc_file_info found;
        EXPECT_EQ(info("/general_storage", &found), 0);
        EXPECT_FALSE(list("/").empty());
        libiusb_file file = openFile(makeFile("again", 700'000));
        EXPECT_EQ(readAll(file), pattern(700'000));
        EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    }
};

TEST_F(Fault, RepliesThatMakeNoSenseCostTheConnectionOnly)
{
    start();
    std::string path = makeFile("file", 100'000);
    for (const char *kind :
         {"magic", "length", "packetnum", "huge", "short", "wrongop"}) {
        SCOPED_TRACE(kind);
        for (const char *operation :
             {"GetFileInfo", "ReadDir", "FileRefRead", "FileRefWrite"}) {
            SCOPED_TRACE(operation);
            libiusb_file file = openFile(path, LIBIUSB_MODE_UPDATE);
            // Everything that belongs to the open is answered after this.
            EXPECT_EQ(readCode(file, 0), 0);
            sim->control(std::string("corrupt ") + operation + " 1 " + kind);
            int code = 0;
            uint32_t count = 0;
            if (operation == std::string("GetFileInfo")) {
                code = info(path);
            } else if (operation == std::string("ReadDir")) {
                code =
                    libiusb_afc_file_read_directory(afc, "/", nullptr, &count);
            } else if (operation == std::string("FileRefRead")) {
                code = readCode(file, 50'000);
            } else {
                code = libiusb_afc_file_write(afc, file, "x", 1, 0, &count);
            }
            EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
            expectLost(file);
            sim->control("faults clear");
        }
        expectWorking();
    }
}

TEST_F(Fault, CutRepliesAndClosedConnections)
{
    start();
    std::string path = makeFile("file", 3 << 20);
    for (const char *fault :
         {"truncate FileRefRead 1 17", "truncate FileRefRead 1 1000",
          "truncate FileRefRead 1 1000 keep",
          "truncate FileRefRead 1 0 after=3", "drop FileRefRead",
          "drop FileRefRead after=4"}) {
        SCOPED_TRACE(fault);
        libiusb_file file = openFile(path);
        EXPECT_EQ(readCode(file, 1 << 20), 0);
        sim->control(fault);
        int code = 0;
        for (uint64_t at = 0; code == 0 && at < 3 << 20; at += 128 << 10)
            code = readCode(file, at, 128 << 10);
        EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
        sim->control("faults clear");
        expectLost(file);
        expectWorking();
    }
    // Also one that goes while nobody asks for anything.
    libiusb_file file = openFile(path);
    EXPECT_EQ(readCode(file, 1), 0);
    sim->control("drop GetFileInfo");
    libiusb_afc *other = nullptr;
    ASSERT_EQ(libiusb_afc_init(opened->device, &other), 0);
    libiusb_afc_file_info found;
    EXPECT_EQ(libiusb_afc_file_get_info(other, "/", &found),
              LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_EQ(libiusb_afc_file_get_info(other, "/", &found), 0);
    EXPECT_EQ(readCode(file, 2), 0);
    libiusb_afc_exit(other);
}

TEST_F(Fault, SilenceEndsAndTheLateReplyIsNotTakenForAnother)
{
    start();
    std::string path = makeFile("file", 100'000);
    libiusb_file file = openFile(path);
    sim->control("stall FileRefRead 1");
    int code = 0;
    int64_t took = duration([&] { code = readCode(file, 0); });
    EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_GE(took, 600);
    EXPECT_LT(took, 2000);
    EXPECT_LT(duration([&] { expectLost(file); }), soon);
    sim->control("stall off");
    expectWorking();
    // A device that answers nobody: each call takes the limit and no longer.
    sim->control("stall on");
    took = duration([&] { code = info("/DCIM"); });
    EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_LT(took, 2000);
    took = duration([&] { code = info("/DCIM"); });
    EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_LT(took, 2000);
    sim->control("stall off");
    expectWorking();
}

TEST_F(Fault, SlowIsNotSilent)
{
    start();
    std::string path = makeFile("file", 100'000);
    libiusb_file file = openFile(path);
    sim->control("delay FileRefRead 1 250");
    EXPECT_EQ(read(file, 0, 100'000), pattern(100'000));
}

TEST_F(Fault, RepliesInAnotherOrderAreMatchedByNumber)
{
    start();
    for (int i = 0; i < 200; i++)
        makeFile("many/file " + std::to_string(i), static_cast<size_t>(i));
    sim->control("corrupt GetFileInfo 50 reorder");
    for (const std::string &name : list("/general_storage/many")) {
        libiusb_afc_file_info found;
        ASSERT_EQ(info("/general_storage/many/" + name, &found), 0) << name;
        EXPECT_EQ(std::to_string(found.size), name.substr(5));
    }
    // The same reply twice: the second belongs to nobody, and what it costs is
    // the connection, even if the first was taken.
    sim->control("corrupt GetFileInfo 1 duplicate");
    int code = info("/DCIM");
    EXPECT_TRUE(code == 0 || code == LIBIUSB_ERROR_LOST_CONNECTION) << code;
    sim->control("faults clear");
    expectWorking();
}

TEST_F(Fault, UnplugEndsEveryCallAtOnce)
{
    start();
    std::string path = makeFile("file", 64 << 20);
    libiusb_file reader = openFile(path);
    libiusb_file writer = openFile("/general_storage/out", LIBIUSB_MODE_WRITE);
    sim->control("unplug after-bytes=10000000");
    int code = 0;
    int64_t took = duration([&] {
        for (uint64_t at = 0; code == 0 && at < 64 << 20; at += 128 << 10)
            code = readCode(reader, at, 128 << 10);
    });
    EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_LT(took, 2000);
    uint32_t count = 5;
    EXPECT_LT(duration([&] {
                  EXPECT_EQ(
                      libiusb_afc_file_write(afc, writer, "x", 1, 0, &count),
                      LIBIUSB_ERROR_LOST_CONNECTION);
                  EXPECT_EQ(count, 0U);
                  EXPECT_EQ(info("/"), LIBIUSB_ERROR_LOST_CONNECTION);
                  EXPECT_EQ(libiusb_afc_make_directory(afc, "/x"),
                            LIBIUSB_ERROR_LOST_CONNECTION);
                  libiusb_device_info about;
                  EXPECT_EQ(libiusb_device_get_info(opened->device, &about),
                            LIBIUSB_ERROR_LOST_CONNECTION);
                  libiusb_afc *house = nullptr;
                  EXPECT_EQ(libiusb_housearrest_init(opened->device, &house),
                            LIBIUSB_ERROR_LOST_CONNECTION);
                  expectLost(reader);
                  expectLost(writer);
              }),
              soon);
}

TEST_F(Fault, UnplugInTheMiddleOfAWriteAndAListing)
{
    start();
    for (int i = 0; i < 500; i++)
        makeFile("many/" + std::to_string(i), 1);
    std::string bytes = pattern(32 << 20);
    libiusb_file file = openFile("/general_storage/out", LIBIUSB_MODE_WRITE);
    sim->control("unplug after-bytes=8000000");
    uint32_t count = 0;
    EXPECT_EQ(libiusb_afc_file_write(afc, file, bytes.data(),
                                     static_cast<uint32_t>(bytes.size()), 0,
                                     &count),
              LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_LE(count, 8'000'000U);
    EXPECT_EQ(fileBytes(sim->media() / "general_storage/out").substr(0, count),
              bytes.substr(0, count));
    sim->control("plug");
    expectLost(file);
    std::vector<std::string> names = list("/general_storage/many");
    sim->control("unplug");
    int code = 0;
    EXPECT_LT(duration([&] {
                  for (const std::string &name : names) {
                      if (code == 0)
                          code = info("/general_storage/many/" + name);
                  }
              }),
              2000);
    EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
    sim->control("plug");
    expectWorking();
}

TEST_F(Fault, AReplugElsewhereIsFoundByTheNextCall)
{
    start();
    libiusb_file file = openFile(makeFile("file", 100'000));
    read(file, 0, 10);
    sim->control("unplug");
    sim->control("plug location=4711");
    EXPECT_EQ(info("/DCIM"), 0);
    expectLost(file);
    expectWorking();
    libiusb_device_info about;
    ASSERT_EQ(libiusb_device_get_info(opened->device, &about), 0);
    EXPECT_EQ(about.location_id, 4711U);
}

TEST_F(Fault, ADeadSessionIsReplacedAndAGoodOneKept)
{
    start();
    libiusb_instproxy *proxy = nullptr;
    sim->resetStats();
    ASSERT_EQ(libiusb_instproxy_init(opened->device, &proxy), 0);
    EXPECT_EQ(libiusb_instproxy_exit(proxy), 0);
    auto lockdown = sim->stats()["lockdown"];
    EXPECT_EQ(lockdown.value("StartService", 0), 1);
    EXPECT_EQ(lockdown.value("StartSession", 0), 0);
    for (const char *fault : {"drop StartService", "fail StartService 1 "
                                                   "SessionInactive"}) {
        SCOPED_TRACE(fault);
        sim->control(fault);
        ASSERT_EQ(libiusb_instproxy_init(opened->device, &proxy), 0);
        EXPECT_EQ(libiusb_instproxy_exit(proxy), 0);
    }
    struct {
        const char *error;
        int code;
    } refusals[] = {{"InvalidService", LIBIUSB_ERROR_INVALID_SERVICE},
                    {"PasswordProtected", LIBIUSB_ERROR_PASSWORD_PROTECTED},
                    {"ServiceProhibited", LIBIUSB_ERROR_SERVICE_REFUSED},
                    {"Whatever", LIBIUSB_ERROR_LOCKDOWN}};
    for (auto [error, code] : refusals) {
        sim->control(std::string("fail StartService 1 ") + error);
        EXPECT_EQ(libiusb_instproxy_init(opened->device, &proxy), code);
        EXPECT_EQ(proxy, nullptr);
    }
    sim->control("stall StartService 1");
    EXPECT_LT(duration([&] {
                  EXPECT_EQ(libiusb_instproxy_init(opened->device, &proxy),
                            LIBIUSB_ERROR_LOST_CONNECTION);
              }),
              2000);
    sim->control("stall off");
}

TEST_F(Fault, EveryStatusBecomesItsCode)
{
    start();
    struct {
        int status, code;
    } table[] = {{1, LIBIUSB_ERROR_AFC_UNKNOWN},
                 {8, LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND},
                 {18, LIBIUSB_ERROR_NO_SPACE},
                 {30, LIBIUSB_ERROR_MUX},
                 {33, LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY},
                 {10, LIBIUSB_ERROR_AFC_PERM_DENIED},
                 {98, -298},
                 {99, LIBIUSB_ERROR_AFC_OTHER},
                 {4'000'000, LIBIUSB_ERROR_AFC_OTHER}};
    for (auto [status, code] : table) {
        sim->control("fail GetFileInfo 1 " + std::to_string(status));
        EXPECT_EQ(info("/"), code) << status;
    }
    EXPECT_STREQ(libiusb_strerror(LIBIUSB_ERROR_LOST_CONNECTION),
                 "lost connection");
    EXPECT_STREQ(libiusb_strerror(12345), "unknown error");
}
