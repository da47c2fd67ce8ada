// The installed apps, and their documents over pooled connections.
#include "sim.h"

static const char *const kNotes = "com.example.notes";

class Apps : public DeviceTest
{
  protected:
    libiusb_afc *openApp(const std::string &bundle_id, int expected = 0) const
    {
        libiusb_afc *house = nullptr;
        EXPECT_EQ(libiusb_housearrest_init(opened->device, &house), 0);
        EXPECT_EQ(libiusb_housearrest_openapp(house, bundle_id.c_str()),
                  expected)
            << bundle_id;
        return house;
    }
    // The sample apps beyond the named ones.
    libiusb_afc *openNumbered(int i) const
    {
        return openApp("com.example.app" + std::to_string(i));
    }
    libiusb_file openIn(libiusb_afc *house) const
    {
        libiusb_file file = 0;
        EXPECT_EQ(libiusb_afc_file_open(house, "/Documents/f",
                                        LIBIUSB_MODE_UPDATE, &file),
                  0);
        return file;
    }
    // The names of the apps as the layer tells them.
    std::vector<std::string> bundleIds(libiusb_instproxy *proxy) const
    {
        libiusb_app *apps = nullptr;
        EXPECT_EQ(libiusb_instproxy_getAppId(proxy, &apps), 0);
        std::vector<std::string> found;
        while (apps) {
            libiusb_app *next = apps->next;
            found.emplace_back(apps->bundle_id);
            EXPECT_STRNE(apps->name, "");
            delete[] apps->name;
            delete[] apps->bundle_id;
            delete apps;
            apps = next;
        }
        return found;
    }
    int vends() const { return sim->count("house_arrest", "VendDocuments"); }
    static int documents(libiusb_afc *house)
    {
        uint32_t count = 0;
        return libiusb_afc_file_read_directory(house, "/Documents", nullptr,
                                               &count);
    }
};

TEST_F(Apps, OnlyThoseThatShareInChunks)
{
    Setting limit("QUORVEL_TIMEOUT_MS", "500");
    start({}, {"--apps", "40"});
    libiusb_instproxy *proxy = nullptr;
    ASSERT_EQ(libiusb_instproxy_init(opened->device, &proxy), 0);
    std::vector<std::string> found = bundleIds(proxy);
    EXPECT_EQ(found.size(), 39U);
    EXPECT_EQ(std::count(found.begin(), found.end(), "com.example.bank"), 0);
    EXPECT_EQ(std::count(found.begin(), found.end(), kNotes), 1);
    // After a refusal, a cut list, silence and a replug the next call works.
    const std::pair<const char *, int> faults[] = {
        {"fail Browse 1 NotEntitled", LIBIUSB_ERROR_INSTPROXY},
        {"drop Browse", LIBIUSB_ERROR_LOST_CONNECTION},
        {"stall Browse 1", LIBIUSB_ERROR_LOST_CONNECTION}};
    for (const auto &each : faults) {
        const char *fault = each.first;
        const int code = each.second;
        sim->control(fault);
        libiusb_app *apps = nullptr;
        expectWithin(2000, [&] {
            EXPECT_EQ(libiusb_instproxy_getAppId(proxy, &apps), code) << fault;
        });
        EXPECT_EQ(apps, nullptr);
        sim->control("stall off");
        EXPECT_EQ(bundleIds(proxy), found);
    }
    sim->control("unplug");
    sim->control("plug");
    EXPECT_EQ(bundleIds(proxy), found);
    EXPECT_EQ(libiusb_instproxy_exit(proxy), 0);
}

TEST_F(Apps, AHandleServesTheDocuments)
{
    start();
    libiusb_afc *house = openApp(kNotes);
    EXPECT_EQ(documents(house), 0);
    libiusb_file file = openIn(house);
    uint32_t count = 0;
    EXPECT_EQ(libiusb_afc_file_write(house, file, "hello", 5, 0, &count), 0);
    EXPECT_EQ(Slurp(sim->documents(kNotes) / "f"), "hello");
    // The media connection does not know this file.
    EXPECT_EQ(libiusb_afc_file_close(afc, file), LIBIUSB_ERROR_INVALID_ARG);
    libiusb_afc_file_info info;
    EXPECT_EQ(libiusb_afc_file_get_info(house, "/Library", &info),
              LIBIUSB_ERROR_AFC_PERM_DENIED);
    // The end of the handle closes the file, not the pooled connection, and
    // opening again soon costs nothing.
    EXPECT_EQ(libiusb_housearrest_exit(house), 0);
    EXPECT_EQ(sim->stats()["open_files"], 0);
    EXPECT_EQ(sim->stats()["house_arrest_connections"], 1);
    for (int i = 0; i < 10; i++) {
        house = openApp(kNotes);
        libiusb_afc *second = openApp(kNotes);
        EXPECT_EQ(documents(house), 0);
        EXPECT_EQ(documents(second), 0);
        libiusb_housearrest_exit(house);
        libiusb_housearrest_exit(second);
    }
    EXPECT_EQ(vends(), 1);
    EXPECT_EQ(sim->count("lockdown", "StartService"), 1);
    // A lost connection is replaced, its files are not.
    house = openApp(kNotes);
    file = openIn(house);
    sim->control("unplug");
    sim->control("plug");
    EXPECT_EQ(documents(house), 0);
    EXPECT_EQ(libiusb_afc_file_close(house, file),
              LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_EQ(libiusb_housearrest_exit(house), 0);
}

TEST_F(Apps, RefusalsAndMisuse)
{
    start();
    libiusb_housearrest_exit(
        openApp("no.such.app", LIBIUSB_ERROR_APP_LOOKUP_FAILED));
    libiusb_afc *house =
        openApp("com.example.bank", LIBIUSB_ERROR_APP_ACCESS_DENIED);
    EXPECT_EQ(documents(house), LIBIUSB_ERROR_INVALID_ARG);
    // The handle may be used for another app then, and for one only.
    EXPECT_EQ(libiusb_housearrest_openapp(house, kNotes), 0);
    for (libiusb_afc *wrong : {house, afc, static_cast<libiusb_afc *>(nullptr)})
        EXPECT_EQ(libiusb_housearrest_openapp(wrong, "com.example.reader"),
                  LIBIUSB_ERROR_INVALID_ARG);
    EXPECT_EQ(documents(house), 0);
    EXPECT_EQ(libiusb_housearrest_exit(house), 0);
    EXPECT_EQ(libiusb_housearrest_exit(nullptr), LIBIUSB_ERROR_INVALID_ARG);
}

TEST_F(Apps, FourAtOnceAndTheLeastRecentlyUsedGoes)
{
    start({}, {"--apps", "12"});
    std::vector<libiusb_afc *> houses;
    for (int i = 5; i <= 10; i++) {
        houses.push_back(openNumbered(i));
        EXPECT_EQ(documents(houses.back()), 0);
    }
    // The simulator notices the end of one in its own time.
    EXPECT_TRUE(Eventually(
        [&] { return sim->stats()["house_arrest_connections"] == 4; }));
    // Handles whose connection went get a new one; the last four still have
    // theirs.
    int before = vends();
    EXPECT_EQ(documents(houses[5]), 0);
    EXPECT_EQ(documents(houses[2]), 0);
    EXPECT_EQ(vends(), before);
    EXPECT_EQ(documents(houses[0]), 0);
    EXPECT_EQ(documents(houses[2]), 0);
    EXPECT_EQ(vends(), before + 1);
    // With a file open on each of four there is no room for another.
    std::vector<libiusb_file> files;
    for (size_t i = 0; i < 4; i++)
        files.push_back(openIn(houses[i]));
    EXPECT_EQ(documents(houses[5]), LIBIUSB_ERROR_SERVICE_LIMIT);
    EXPECT_EQ(libiusb_afc_file_close(houses[1], files[1]), 0);
    EXPECT_EQ(documents(houses[5]), 0);
    for (size_t i : {0U, 2U, 3U}) {
        uint32_t count = 0;
        EXPECT_EQ(
            libiusb_afc_file_write(houses[i], files[i], "x", 1, 0, &count), 0);
    }
    for (libiusb_afc *house : houses)
        EXPECT_EQ(libiusb_housearrest_exit(house), 0);
    // A limit on the device frees an idle one.
    start({"--max-house-arrest", "2"}, {"--apps", "12"});
    for (int i = 5; i <= 10; i++) {
        libiusb_afc *house = openNumbered(i);
        EXPECT_EQ(documents(house), 0);
        libiusb_housearrest_exit(house);
    }
    EXPECT_LE(sim->stats()["house_arrest_connections"], 2);
}
