// Pairing, trust and sessions.
#include "sim.h"

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

TEST(Trust, EveryKindOfTlsAndOldDevices)
{
    for (const char *tls : {"off", "session", "all"}) {
        for (const char *version : {"17.5.1", "9.3.5"}) {
            SCOPED_TRACE(std::string(tls) + " " + version);
            Sim sim({"--tls", tls}, {{"--ios", version}});
            EXPECT_EQ(openAndUse(), 0);
            EXPECT_EQ(openAndUse(), 0);
            EXPECT_EQ(sim.count("lockdown", "Pair"), 1);
        }
    }
}

TEST(Trust, WhatTheDeviceSaysAndWhatComesOfIt)
{
    Setting limit("QUORVEL_TIMEOUT_MS", "700");
    Sim sim({}, {{"--trust", "pending:2"}});
    const std::pair<const char *, int> steps[] = {
        // The prompt is waited for by calling again.
        {"", LIBIUSB_ERROR_TRUST_PENDING},
        {"", LIBIUSB_ERROR_TRUST_PENDING},
        {"", 0},
        {"fail StartSession 1 PasswordProtected",
         LIBIUSB_ERROR_PASSWORD_PROTECTED},
        {"fail ReadPairRecord 1 22", 0},
        {"fail StartSession 1 InvalidHostID", 0},
        {"drop StartSession", LIBIUSB_ERROR_LOST_CONNECTION},
        {"fail Connect 1 3", LIBIUSB_ERROR_SERVICE_REFUSED},
        {"fail Connect 1 2", LIBIUSB_ERROR_NO_DEVICE},
        {"stall StartSession 1", LIBIUSB_ERROR_LOST_CONNECTION},
        {"stall off", 0},
        {"stall on", LIBIUSB_ERROR_LOST_CONNECTION},
        {"stall off", 0},
        {"trust stale", 0}};
    for (const auto &each : steps) {
        const char *command = each.first;
        const int code = each.second;
        SCOPED_TRACE(command);
        if (*command)
            sim.control(command);
        expectWithin(3000, [&] { EXPECT_EQ(openAndUse(), code); });
    }
    // A stale record that was replaced does not come back with a prompt.
    sim.control("trust stale");
    sim.control("trust pending 1");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_TRUST_PENDING);
    EXPECT_EQ(openAndUse(), 0);
}

TEST(Trust, LockedAndDenied)
{
    Sim sim({}, {{"--trust", "locked"}});
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_DEVICE_LOCKED);
    sim.control("trust deny");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_TRUST_DENIED);
    sim.control("trust accept");
    sim.control("fail Pair 1 InvalidPairRecord");
    EXPECT_EQ(openAndUse(), LIBIUSB_ERROR_PAIRING_FAILED);
    sim.control("drop Pair");
    EXPECT_NE(openAndUse(), 0);
    EXPECT_EQ(openAndUse(), 0);
}
