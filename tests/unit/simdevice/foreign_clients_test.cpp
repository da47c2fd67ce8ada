// Programs and a library that nobody here wrote, against the simulator: proof
// that it speaks the devices' protocols and not a dialect of our own.

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <libimobiledevice/afc.h>
#include <libimobiledevice/house_arrest.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include "sim_process.h"

using namespace simtest;

namespace
{

const std::string kUdid = "00008110-000A1C2E3F40801E";

std::string makeUnpaired(const TempFolder &folder, const std::string &trust)
{
    std::string device = makeDevice(folder, "device", {"--trust", trust});
    std::filesystem::remove(device + "/pairing.plist");
    return device;
}

// A simulator that this process and its children find.
class World
{
  public:
    explicit World(const std::string &trust = "trusted",
                   const std::string &tls = "session",
                   const std::string &rttUs = "0")
        : m_device(makeUnpaired(m_folder, trust)),
          m_sim(m_folder, {m_device}, {"--tls", tls, "--rtt-us", rttUs})
    {
        // The library's TLS writes to connections that have ended.
        std::signal(SIGPIPE, SIG_IGN);
        setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + m_sim.socketPath()).c_str(),
               1);
    }
    const SimProcess &sim() const { return m_sim; }
    const std::string &device() const { return m_device; }

  private:
    TempFolder m_folder;
    std::string m_device;
    SimProcess m_sim;
};

bool contains(const std::string &text, const std::string &piece)
{
    return text.find(piece) != std::string::npos;
}

// Every way of TLS, for the programs and for the library.
class ForeignClients : public ::testing::TestWithParam<const char *>
{
  protected:
    World world{"trusted", GetParam()};
};

TEST_P(ForeignClients, ProgramsListReadPairAndSeeApps)
{
    RunResult run = runProgram({"idevice_id", "-l"});
    ASSERT_NE(run.status, -1) << "not installed: run scripts/setup";
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, kUdid + "\n");

    run = runProgram({"ideviceinfo", "-s"});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "DeviceName: Anna's iPhone\n"));
    EXPECT_FALSE(contains(run.output, "SerialNumber")); // needs a session

    run = runProgram({"idevicepair", "pair"});
    EXPECT_EQ(run.status, 0) << run.output;
    run = runProgram({"idevicepair", "validate"});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "SUCCESS"));

    run = runProgram({"ideviceinfo"});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "ProductVersion: 17.5.1\n"));
    EXPECT_TRUE(contains(run.output, "SerialNumber: F2LXK0QPN7\n"));
    run = runProgram({"ideviceinfo", "-q", "com.apple.disk_usage"});
    EXPECT_TRUE(contains(run.output, "TotalDiskCapacity: 64000000000\n"));

    run = runProgram({"ideviceinstaller", "-l"});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(
        contains(run.output, "com.example.notes, \"1.2.3\", \"Notes\""));
    EXPECT_FALSE(contains(run.output, "com.apple.Preferences"));

    EXPECT_EQ(runProgram({"idevicepair", "unpair"}).status, 0);
    EXPECT_EQ(world.sim().stats()["lockdown"]["Unpair"], 1);
    EXPECT_EQ(world.sim().stats()["usbmux"]["DeletePairRecord"], 1);
    EXPECT_TRUE(world.sim().waitFor("open_connections", 0));
}

// ---------------------------------------------------------------------------
// The library

struct DeviceCloser {
    void operator()(idevice_t device) const { idevice_free(device); }
};
struct LockdownCloser {
    void operator()(lockdownd_client_t client) const
    {
        lockdownd_client_free(client);
    }
};
struct AfcCloser {
    void operator()(afc_client_t client) const { afc_client_free(client); }
};
using DevicePointer =
    std::unique_ptr<std::remove_pointer_t<idevice_t>, DeviceCloser>;
using LockdownPointer =
    std::unique_ptr<std::remove_pointer_t<lockdownd_client_t>, LockdownCloser>;
using AfcPointer =
    std::unique_ptr<std::remove_pointer_t<afc_client_t>, AfcCloser>;

DevicePointer openDevice()
{
    idevice_t device = nullptr;
    idevice_new(&device, kUdid.c_str());
    return DevicePointer(device);
}

AfcPointer openAfc(idevice_t device)
{
    afc_client_t client = nullptr;
    afc_client_start_service(device, &client, "simtest");
    return AfcPointer(client);
}

std::vector<std::string> namesOf(char **list)
{
    std::vector<std::string> names;
    for (char **entry = list; entry != nullptr && *entry != nullptr; entry++) {
        names.emplace_back(*entry);
    }
    afc_dictionary_free(list);
    return names;
}

std::vector<std::string> readDirectory(afc_client_t afc, const char *path)
{
    char **list = nullptr;
    EXPECT_EQ(afc_read_directory(afc, path, &list), AFC_E_SUCCESS);
    return namesOf(list);
}

// The value after a key in a key, value, key, value, ... list.
std::string valueOf(const std::vector<std::string> &pairs, const char *key)
{
    for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
        if (pairs[i] == key) {
            return pairs[i + 1];
        }
    }
    return "missing";
}

std::string infoOf(afc_client_t afc, const char *path, const char *key)
{
    char **list = nullptr;
    EXPECT_EQ(afc_get_file_info(afc, path, &list), AFC_E_SUCCESS) << path;
    return valueOf(namesOf(list), key);
}

void writeFile(afc_client_t afc, const char *path, const std::string &text)
{
    uint64_t file = 0;
    uint32_t count = 0;
    ASSERT_EQ(afc_file_open(afc, path, AFC_FOPEN_WRONLY, &file), AFC_E_SUCCESS);
    EXPECT_EQ(afc_file_write(afc, file, text.data(),
                             static_cast<uint32_t>(text.size()), &count),
              AFC_E_SUCCESS);
    EXPECT_EQ(count, text.size());
    EXPECT_EQ(afc_file_close(afc, file), AFC_E_SUCCESS);
}

std::string readFile(afc_client_t afc, const char *path, int64_t offset)
{
    uint64_t file = 0;
    EXPECT_EQ(afc_file_open(afc, path, AFC_FOPEN_RDONLY, &file), AFC_E_SUCCESS);
    EXPECT_EQ(afc_file_seek(afc, file, offset, SEEK_SET), AFC_E_SUCCESS);
    std::string text;
    char piece[65536];
    uint32_t count = 0;
    while (afc_file_read(afc, file, piece, sizeof piece, &count) ==
               AFC_E_SUCCESS &&
           count > 0) {
        text.append(piece, count);
    }
    uint64_t position = 0;
    EXPECT_EQ(afc_file_tell(afc, file, &position), AFC_E_SUCCESS);
    EXPECT_EQ(position, static_cast<uint64_t>(offset) + text.size());
    EXPECT_EQ(afc_file_close(afc, file), AFC_E_SUCCESS);
    return text;
}

TEST_P(ForeignClients, LibraryWorksWithFiles)
{
    const DevicePointer device = openDevice();
    ASSERT_TRUE(device);
    const AfcPointer owner = openAfc(device.get());
    ASSERT_TRUE(owner);
    afc_client_t afc = owner.get();

    const auto names = readDirectory(afc, "/general_storage");
    EXPECT_EQ(names.at(0), ".");
    EXPECT_EQ(names.at(1), "..");
    EXPECT_EQ(std::count(names.begin(), names.end(), "Welcome.txt"), 1);
    EXPECT_EQ(infoOf(afc, "/general_storage/Welcome.txt", "st_size"), "30");
    EXPECT_EQ(infoOf(afc, "general_storage/", "st_ifmt"), "S_IFDIR");
    EXPECT_EQ(infoOf(afc, "/general_storage/Empty folder", "st_size"), "64");
    EXPECT_EQ(infoOf(afc, "/general_storage/Welcome.txt", "st_mtime"),
              "1709294400000000000");

    std::string text(1000003, '\0');
    for (size_t i = 0; i < text.size(); i++) {
        text[i] = static_cast<char>(i * 7 + i / 251);
    }
    writeFile(afc, "/general_storage/a.bin", text);
    EXPECT_EQ(readFile(afc, "/general_storage/a.bin", 0), text);
    EXPECT_EQ(readFile(afc, "/general_storage/a.bin", 777777),
              text.substr(777777));
    EXPECT_EQ(readFile(afc, "/general_storage/a.bin", 2000000), "");

    EXPECT_EQ(afc_truncate(afc, "/general_storage/a.bin", 5), AFC_E_SUCCESS);
    EXPECT_EQ(afc_rename_path(afc, "/general_storage/a.bin",
                              "/general_storage/Welcome.txt"),
              AFC_E_SUCCESS);
    EXPECT_EQ(readFile(afc, "/general_storage/Welcome.txt", 0),
              text.substr(0, 5));
    EXPECT_EQ(afc_set_file_time(afc, "/general_storage/Welcome.txt",
                                1234567890123456789),
              AFC_E_SUCCESS);
    EXPECT_EQ(infoOf(afc, "/general_storage/Welcome.txt", "st_birthtime"),
              "1234567890123456789");
    char **info = nullptr;
    EXPECT_EQ(afc_get_device_info(afc, &info), AFC_E_SUCCESS);
    EXPECT_EQ(valueOf(namesOf(info), "FSTotalBytes"), "64000000000");
}

TEST_P(ForeignClients, LibraryWorksWithApps)
{
    const DevicePointer device = openDevice();
    ASSERT_TRUE(device);
    const auto vend = [&](const char *bundleId, std::string &error) {
        house_arrest_client_t client = nullptr;
        EXPECT_EQ(
            house_arrest_client_start_service(device.get(), &client, "simtest"),
            HOUSE_ARREST_E_SUCCESS);
        house_arrest_send_command(client, "VendDocuments", bundleId);
        plist_t answer = nullptr;
        house_arrest_get_result(client, &answer);
        const plist_t node = plist_dict_get_item(answer, "Error");
        error = node != nullptr ? plist_get_string_ptr(node, nullptr) : "";
        plist_free(answer);
        return client;
    };
    std::string error;
    house_arrest_client_t client = vend("com.example.notes", error);
    EXPECT_EQ(error, "");
    afc_client_t afc = nullptr;
    ASSERT_EQ(afc_client_new_from_house_arrest_client(client, &afc),
              AFC_E_SUCCESS);
    EXPECT_EQ(readDirectory(afc, "/"),
              (std::vector<std::string>{".", "..", "Documents"}));
    EXPECT_EQ(readFile(afc, "/Documents/Lists/Groceries.txt", 0), "eggs\n");
    writeFile(afc, "/Documents/new.txt", "new");
    EXPECT_EQ(afc_remove_path(afc, "/Documents"), AFC_E_PERM_DENIED);
    EXPECT_EQ(afc_make_directory(afc, "/Library"), AFC_E_PERM_DENIED);
    EXPECT_EQ(world.sim().stats()["house_arrest_connections"], 1);
    afc_client_free(afc);
    house_arrest_client_free(client);
    EXPECT_TRUE(std::filesystem::exists(
        world.device() + "/Apps/com.example.notes/Documents/new.txt"));
    EXPECT_TRUE(world.sim().waitFor("house_arrest_connections", 0));

    house_arrest_client_free(vend("com.example.bank", error));
    EXPECT_EQ(error, "InstallationLookupFailed");
    house_arrest_client_free(vend("com.example.nosuch", error));
    EXPECT_EQ(error, "ApplicationLookupFailed");
}

std::string tlsName(const ::testing::TestParamInfo<const char *> &tls)
{
    return tls.param;
}

INSTANTIATE_TEST_SUITE_P(Tls, ForeignClients,
                         ::testing::Values("off", "session", "all"), tlsName);

TEST(ForeignClientsOverACable, TlsForEverythingWorksWithLatency)
{
    const World world("trusted", "all", "2000");
    const DevicePointer device = openDevice();
    ASSERT_TRUE(device);
    const AfcPointer afc = openAfc(device.get());
    ASSERT_TRUE(afc);
    writeFile(afc.get(), "/general_storage/a", std::string(300000, 'x'));
    EXPECT_EQ(readFile(afc.get(), "/general_storage/a", 0).size(), 300000U);
    EXPECT_EQ(world.sim().control("unplug"), "ok");
    char **list = nullptr;
    EXPECT_NE(afc_read_directory(afc.get(), "/", &list), AFC_E_SUCCESS);
}

// ---------------------------------------------------------------------------
// Trust

lockdownd_error_t pairOnce()
{
    const DevicePointer device = openDevice();
    lockdownd_client_t client = nullptr;
    lockdownd_client_new(device.get(), &client, "simtest");
    const LockdownPointer owner(client);
    return lockdownd_pair(client, nullptr);
}

lockdownd_error_t openSession()
{
    const DevicePointer device = openDevice();
    lockdownd_client_t client = nullptr;
    const lockdownd_error_t result =
        lockdownd_client_new_with_handshake(device.get(), &client, "simtest");
    const LockdownPointer owner(client);
    return result;
}

TEST(ForeignTrust, PendingPromptIsAcceptedInTheEnd)
{
    const World world("pending:2");
    const RunResult run = runProgram({"idevicepair", "pair"});
    ASSERT_NE(run.status, -1) << "not installed: run scripts/setup";
    EXPECT_NE(run.status, 0);
    EXPECT_TRUE(contains(run.output, "accept the trust dialog")) << run.output;
    EXPECT_EQ(openSession(), LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING);
    EXPECT_EQ(runProgram({"idevicepair", "pair"}).status, 0);
    EXPECT_EQ(openSession(), LOCKDOWN_E_SUCCESS);
}

TEST(ForeignTrust, LockedAndDeniedDevicesSaySo)
{
    const World world("locked");
    EXPECT_EQ(pairOnce(), LOCKDOWN_E_PASSWORD_PROTECTED);
    EXPECT_EQ(world.sim().control("trust deny"), "ok");
    EXPECT_EQ(pairOnce(), LOCKDOWN_E_USER_DENIED_PAIRING);
    EXPECT_EQ(world.sim().control("trust pending 1"), "ok");
    EXPECT_EQ(pairOnce(), LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING);
    EXPECT_EQ(world.sim().control("trust accept"), "ok");
    EXPECT_EQ(openSession(), LOCKDOWN_E_SUCCESS);
    // Paired and locked again: sessions, but no services.
    EXPECT_EQ(world.sim().control("trust locked"), "ok");
    EXPECT_EQ(openSession(), LOCKDOWN_E_SUCCESS);
    const DevicePointer device = openDevice();
    EXPECT_FALSE(openAfc(device.get()));
}

TEST(ForeignTrust, AStaleRecordIsRefusedUntilPairedAnew)
{
    const World world("stale");
    EXPECT_EQ(openSession(), LOCKDOWN_E_INVALID_HOST_ID);
    EXPECT_EQ(pairOnce(), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(openSession(), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(world.sim().control("trust stale"), "ok");
    EXPECT_EQ(openSession(), LOCKDOWN_E_INVALID_HOST_ID);
}

} // namespace
