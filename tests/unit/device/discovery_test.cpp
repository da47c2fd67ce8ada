// Finding devices: the list, what it tells, and daemons that are none.
#include "device/usbmux.h"
#include "sim.h"

class Discovery : public ::testing::Test
{
  protected:
    std::vector<libiusb_device_info> infos(int expected = 0)
    {
        libiusb_device **devices = nullptr;
        EXPECT_EQ(libiusb_device_get_list(opened.context, &devices), expected);
        std::vector<libiusb_device_info> result;
        for (; devices && *devices; devices++) {
            result.emplace_back();
            EXPECT_EQ(libiusb_device_get_info(*devices, &result.back()), 0);
        }
        return result;
    }
    Opened opened;
};

TEST_F(Discovery, DevicesInOrderWithLocationsAndNames)
{
    Sim sim({}, {{"--location-id", "11", "--udid", std::string(40, 'a'),
                  "--name", "Zoë’s phone", "--ios", "9.3.5"},
                 {"--location-id", "4294967295"}});
    std::vector<libiusb_device_info> found = infos();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].location_id, 11U);
    EXPECT_EQ(found[0].state, 0);
    EXPECT_STREQ(found[0].udid, std::string(40, 'a').c_str());
    EXPECT_STREQ(found[0].device_name, "Zoë’s phone");
    EXPECT_STREQ(found[0].ios_version, "9.3.5");
    EXPECT_EQ(found[1].location_id, 4294967295U);
    EXPECT_STREQ(found[1].ios_version, "17.5.1");
    EXPECT_STREQ(found[1].device_class, "iPhone");
    EXPECT_GT(found[1].product_id, 0U);
    sim.control("unplug 0");
    EXPECT_EQ(infos().size(), 1U);
    sim.control("unplug 1");
    EXPECT_TRUE(infos().empty());
    sim.control("plug 1");
    sim.control("plug 0 location=12");
    found = infos();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].location_id + found[1].location_id, 11U);
}

TEST_F(Discovery, AnOpenedDeviceTellsItsCapacities)
{
    Sim sim({"--wifi"},
            {{"--capacity", "64000000000", "--free", "31000000000"}});
    // Over Wi-Fi it is listed too, without a location.
    std::vector<libiusb_device_info> found = infos();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ((found[0].location_id != 0) + (found[1].location_id != 0), 1);
    EXPECT_STREQ(found[0].udid, found[1].udid);
    ASSERT_EQ(opened.open(), 0);
    libiusb_device_info about;
    ASSERT_EQ(libiusb_device_get_info(opened.device, &about), 0);
    EXPECT_EQ(about.total_capacity, 64'000'000'000U);
    EXPECT_EQ(about.free_capacity, 31'000'000'000U);
    EXPECT_GT(about.block_size, 0U);
    libiusb_afc *afc = nullptr;
    ASSERT_EQ(libiusb_afc_init(opened.device, &afc), 0);
    sim.resetStats();
    ASSERT_EQ(libiusb_device_get_info(opened.device, &about), 0);
    EXPECT_EQ(sim.count("lockdown", "StartService"), 0);
    EXPECT_EQ(libiusb_afc_exit(afc), 0);
}

TEST_F(Discovery, ANeighbourThatDoesNotAnswerHoldsNobodyUp)
{
    Sim sim({}, {{"--location-id", "7"},
                 {"--location-id", "8", "--udid", std::string(40, 'b'),
                  "--trust", "denied"}});
    sim.control("stall on 0");
    std::vector<libiusb_device_info> found;
    expectWithin(2500, [&] { found = infos(); });
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].location_id, 7U);
    EXPECT_EQ(found[0].state, LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_STRNE(found[0].udid, "");
    EXPECT_EQ(found[1].location_id, 8U);
    EXPECT_STRNE(found[1].ios_version, "");
    sim.control("stall off 0");
    // Gone since it was listed.
    libiusb_device **devices = nullptr;
    ASSERT_EQ(libiusb_device_get_list(opened.context, &devices), 0);
    sim.control("unplug 0");
    EXPECT_EQ(libiusb_device_open(devices[0], &opened.device),
              LIBIUSB_ERROR_NO_DEVICE);
    libiusb_device_info info;
    EXPECT_EQ(libiusb_device_get_info(devices[0], &info), 0);
    EXPECT_EQ(info.state, LIBIUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(info.location_id, 7U);
}

TEST_F(Discovery, NoDaemonAndDaemonsThatAreNone)
{
    Setting limit("QUORVEL_TIMEOUT_MS", "500");
    libiusb_context_exit(opened.context);
    libiusb_context_init(&opened.context);
    for (const char *nowhere : {"UNIX:/nonexistent/socket", "127.0.0.1:1"}) {
        Setting address("USBMUXD_SOCKET_ADDRESS", nowhere);
        infos(LIBIUSB_ERROR_NO_DAEMON);
    }
    Sim sim;
    for (const char *kind : {"on", "text", "length", "huge", "plist"}) {
        SCOPED_TRACE(kind);
        sim.control(std::string("usbmux-nonsense ") + kind);
        infos(LIBIUSB_ERROR_PROTOCOL);
    }
    sim.control("usbmux-nonsense silent");
    expectWithin(2000, [&] { infos(LIBIUSB_ERROR_NO_DAEMON); });
    // Entries of the wrong types are left out; what is whole is a list.
    sim.control("usbmux-nonsense types");
    libiusb_device **devices = nullptr;
    libiusb_device_get_list(opened.context, &devices);
    sim.control("usbmux-nonsense off");
    EXPECT_EQ(infos().size(), 1U);
    for (const char *kind :
         {"on", "garbage", "length", "empty", "array", "types"}) {
        SCOPED_TRACE(kind);
        sim.control(std::string("lockdown-nonsense ") + kind);
        std::vector<libiusb_device_info> found = infos();
        ASSERT_EQ(found.size(), 1U);
        EXPECT_NE(found[0].state, 0);
        EXPECT_NE(found[0].location_id, 0U);
        EXPECT_NE(opened.open(), 0);
        EXPECT_EQ(opened.device, nullptr);
    }
    using iusb::usbmuxAddress;
    EXPECT_EQ(usbmuxAddress("UNIX:/tmp/x").path, "/tmp/x");
    EXPECT_EQ(usbmuxAddress("localhost:27015").port, "27015");
    EXPECT_EQ(usbmuxAddress("[::1]:27015").host, "::1");
    for (const char *bad :
         {static_cast<const char *>(nullptr), "", "UNIX:", "/tmp/x", "host",
          "host:", ":5", "host:0", "host:65536", "host:7x", "unix:/tmp/x"})
        EXPECT_EQ(usbmuxAddress(bad).path, "/var/run/usbmuxd");
}
