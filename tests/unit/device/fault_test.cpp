// Devices that go away, go silent or answer nonsense: every call ends, the
// connection is given up, and the next call works as soon as the device is
// there.
#include "sim.h"

class Fault : public DeviceTest
{
  protected:
    Setting timeout{"QUORVEL_TIMEOUT_MS", "700"};

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
        EXPECT_EQ(info("/general_storage"), 0);
        EXPECT_FALSE(list("/").empty());
        libiusb_file file = openFile(makeFile("again", 700'000));
        EXPECT_EQ(readAll(file), pattern(700'000));
        EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    }
    // Reads in order until it fails.
    int readUntilFailure(libiusb_file file) const
    {
        int code = 0;
        for (uint64_t at = 0; code == 0 && at < 64 << 20; at += 128 << 10)
            code = readCode(file, at, 128 << 10);
        return code;
    }
};

TEST_F(Fault, RepliesThatMakeNoSenseCostTheConnectionOnly)
{
    start();
    std::string path = makeFile("file", 100'000);
    uint32_t count = 0;
    libiusb_file file = 0;
    const std::pair<const char *, std::function<int()>> calls[] = {
        {"GetFileInfo",
         [&] {
             return info(path);
         }},
        {"ReadDir",
         [&] {
             return libiusb_afc_file_read_directory(afc, "/", nullptr, &count);
         }},
        {"FileRefRead",
         [&] {
             return readCode(file, 50'000);
         }},
        {"FileRefWrite", [&] {
             return write(file, 0, "x");
         }}};
    for (const char *kind :
         {"magic", "length", "packetnum", "huge", "short", "wrongop"}) {
        for (const auto &[operation, call] : calls) {
            SCOPED_TRACE(std::string(operation) + " " + kind);
            file = openFile(path, LIBIUSB_MODE_UPDATE);
            // Everything that belongs to the open is answered after this.
            EXPECT_EQ(readCode(file, 0), 0);
            sim->control(std::string("corrupt ") + operation + " 1 " + kind);
            EXPECT_EQ(call(), LIBIUSB_ERROR_LOST_CONNECTION);
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
        EXPECT_EQ(readUntilFailure(file), LIBIUSB_ERROR_LOST_CONNECTION);
        sim->control("faults clear");
        expectLost(file);
        expectWorking();
    }
    // One connection that goes leaves the others alone.
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
    sim->control("delay FileRefRead 1 250"); // slow is not silent
    EXPECT_EQ(read(file, 0, 50'000), pattern(50'000));
    sim->control("stall FileRefRead 1");
    double begin = Now();
    expectWithin(2000, [&] {
        EXPECT_EQ(readCode(file, 60'000), LIBIUSB_ERROR_LOST_CONNECTION);
    });
    EXPECT_GE(Now() - begin, 0.6);
    expectWithin(500, [&] { expectLost(file); });
    sim->control("stall off");
    expectWorking();
    // A device that answers nobody: each call takes the limit and no longer.
    sim->control("stall on");
    for (int i = 0; i < 2; i++)
        expectWithin(2000, [&] {
            EXPECT_EQ(info("/DCIM"), LIBIUSB_ERROR_LOST_CONNECTION);
        });
    sim->control("stall off");
    expectWorking();
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
    expectWithin(2000, [&] {
        EXPECT_EQ(readUntilFailure(reader), LIBIUSB_ERROR_LOST_CONNECTION);
    });
    expectWithin(500, [&] {
        uint32_t count = 5;
        libiusb_device_info about;
        libiusb_afc *house = nullptr;
        for (int code : {write(writer, 0, "x", &count), info("/"),
                         libiusb_afc_make_directory(afc, "/x"),
                         libiusb_device_get_info(opened->device, &about),
                         libiusb_housearrest_init(opened->device, &house)})
            EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
        EXPECT_EQ(count, 0U);
        expectLost(reader);
        expectLost(writer);
    });
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
    EXPECT_EQ(write(file, 0, bytes, &count), LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_LE(count, 8'000'000U);
    EXPECT_EQ(onDevice("out").substr(0, count), bytes.substr(0, count));
    // Plugged in elsewhere, it is found by the next call.
    sim->control("plug location=4711");
    EXPECT_EQ(info("/DCIM"), 0);
    expectLost(file);
    libiusb_device_info about;
    ASSERT_EQ(libiusb_device_get_info(opened->device, &about), 0);
    EXPECT_EQ(about.location_id, 4711U);
    std::vector<std::string> names = list("/general_storage/many");
    sim->control("unplug");
    expectWithin(2000, [&] {
        int code = 0;
        for (size_t i = 0; i < names.size() && code == 0; i++)
            code = info("/general_storage/many/" + names[i]);
        EXPECT_EQ(code, LIBIUSB_ERROR_LOST_CONNECTION);
    });
    sim->control("plug");
    expectWorking();
}

TEST_F(Fault, ADeadSessionIsReplacedAndAGoodOneKept)
{
    start();
    libiusb_instproxy *proxy = nullptr;
    for (const char *fault : {"faults clear", "drop StartService",
                              "fail StartService 1 SessionInactive"}) {
        SCOPED_TRACE(fault);
        sim->resetStats();
        sim->control(fault);
        ASSERT_EQ(libiusb_instproxy_init(opened->device, &proxy), 0);
        EXPECT_EQ(libiusb_instproxy_exit(proxy), 0);
        bool good = fault == std::string("faults clear");
        EXPECT_EQ(sim->count("lockdown", "StartSession"), good ? 0 : 1);
    }
    const std::pair<const char *, int> refusals[] = {
        {"fail StartService 1 InvalidService", LIBIUSB_ERROR_INVALID_SERVICE},
        {"fail StartService 1 PasswordProtected",
         LIBIUSB_ERROR_PASSWORD_PROTECTED},
        {"fail StartService 1 ServiceProhibited",
         LIBIUSB_ERROR_SERVICE_REFUSED},
        {"fail StartService 1 Whatever", LIBIUSB_ERROR_LOCKDOWN},
        {"stall StartService 1", LIBIUSB_ERROR_LOST_CONNECTION}};
    for (const auto &each : refusals) {
        const char *fault = each.first;
        const int code = each.second;
        sim->control(fault);
        expectWithin(2000, [&] {
            EXPECT_EQ(libiusb_instproxy_init(opened->device, &proxy), code);
        });
        EXPECT_EQ(proxy, nullptr);
    }
    sim->control("stall off");
}

TEST_F(Fault, EveryStatusBecomesItsCode)
{
    start();
    const std::pair<int, int> table[] = {
        {1, LIBIUSB_ERROR_AFC_UNKNOWN},
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
