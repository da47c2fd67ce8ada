// Pairing, trust and sessions.
#include "sim.h"

class Trust : public ::testing::Test
{
  protected:
    // Opens, and on success makes sure that the session is of use.
    static int openAndUse()
    {
        Opened opened;
        int code = opened.open();
        if (code) {
            EXPECT_EQ(opened.device, nullptr);
            return code;
        }
        libiusb_afc *afc = nullptr;
        EXPECT_EQ(libiusb_afc_init(opened.device, &afc), 0);
        libiusb_afc_file_info info;
        EXPECT_EQ(libiusb_afc_file_get_info(afc, "/", &info), 0);
        EXPECT_EQ(info.file_type, LIBIUSB_FILE_FOLDER);
        libiusb_afc_exit(afc);
        return 0;
    }
    static int pairings(const Sim &sim)
    {
        return sim.stats()["lockdown"].value("Pair", 0);
    }
};

TEST_F(Trust, EveryKindOfTlsAndOldDevices)
{
    for (const char *tls : {"off", "session", "all"}) {
        for (const char *version : {"17.5.1", "9.3.5"}) {
            SCOPED_TRACE(std::string(tls) + " " + version);
            Sim sim({"--tls", tls}, {{"--ios", version}});
            EXPECT_EQ(openAndUse(), 0);
            EXPECT_EQ(openAndUse(), 0);
            EXPECT_EQ(pairings(sim), 1);
        }
    }
}

TEST_F(Trust, ThePromptIsWaitedForByCallingAgain)
{
    Sim sim({}, {{"--trust", "pending:2"}});
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_TRUST_PENDING);
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_TRUST_PENDING);
    EXPECT_EQ(openAndUse(), 0);
    EXPECT_EQ(openAndUse(), 0);
}

TEST_F(Trust, LockedAndDenied)
{
    Sim sim({}, {{"--trust", "locked"}});
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_DEVICE_LOCKED);
    sim.control("trust deny");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_TRUST_DENIED);
    sim.control("trust accept");
    EXPECT_EQ(openAndUse(), 0);
    sim.control("fail StartSession 1 PasswordProtected");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_PASSWORD_PROTECTED);
}

TEST_F(Trust, AStaleRecordIsReplaced)
{
    Sim sim;
    EXPECT_EQ(openAndUse(), 0);
    sim.control("trust stale");
    EXPECT_EQ(openAndUse(), 0);
    EXPECT_EQ(pairings(sim), 2);
    // And with a prompt in between, the old record does not come back.
    sim.control("trust stale");
    sim.control("trust pending 1");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_TRUST_PENDING);
    EXPECT_EQ(openAndUse(), 0);
}

TEST_F(Trust, FailuresOnTheWayEndCleanly)
{
    Setting limit("QUORVEL_TIMEOUT_MS", "700");
    Sim sim;
    sim.control("fail Pair 1 InvalidPairRecord");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_PAIRING_FAILED);
    sim.control("drop Pair");
    EXPECT_NE(openAndUse(), 0);
    EXPECT_EQ(openAndUse(), 0);
    sim.control("fail ReadPairRecord 1 22");
    EXPECT_EQ(openAndUse(), 0);
    sim.control("fail StartSession 1 InvalidHostID");
    EXPECT_EQ(openAndUse(), 0);
    sim.control("drop StartSession");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_LOST_CONNECTION);
    sim.control("fail Connect 1 3");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_SERVICE_REFUSED);
    sim.control("fail Connect 1 2");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_NO_DEVICE);
    sim.control("stall StartSession 1");
    EXPECT_LT(duration([] {
                  EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_LOST_CONNECTION);
              }),
              3000);
    sim.control("stall off");
    sim.control("stall on");
    EXPECT_LT(duration([] { EXPECT_NE(openAndUse(), 0); }), 3000);
    sim.control("stall off");
    EXPECT_EQ(openAndUse(), 0);
}

TEST_F(Trust, ADeviceThatIsGoneSinceItWasListed)
{
    Sim sim;
    Opened opened;
    libiusb_device **devices = nullptr;
    ASSERT_EQ(libiusb_device_get_list(opened.context, &devices), 0);
    sim.control("unplug");
    EXPECT_EQ(libiusb_device_open(devices[0], &opened.device),
              LIBIUSB_ERROR_NO_DEVICE);
    libiusb_device_info info;
    EXPECT_EQ(libiusb_device_get_info(devices[0], &info), 0);
    EXPECT_EQ(info.state, LIBIUSB_ERROR_NO_DEVICE);
    EXPECT_NE(info.location_id, 0U);
}
