// A simulated device for one test, and an opened connection to it.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "device/libiusb.h"
#include "tests/support/simulator.h"

// The content of a file; a failed comparison tells no more than its size and
// beginning.
struct Bytes : std::string {
    using std::string::string;
    Bytes(std::string text) : std::string(std::move(text)) {}
};
void PrintTo(const Bytes &bytes, std::ostream *out);

// Device folders of its own, served; USBMUXD_SOCKET_ADDRESS points at them
// meanwhile.
class Sim
{
  public:
    // `make` are further options of "quorvel-simdevice make", one set for each
    // device; `run` those of "quorvel-simdevice run".
    explicit Sim(const Words &run = {}, const std::vector<Words> &make = {{}});
    ~Sim();
    Sim(const Sim &) = delete;
    Sim &operator=(const Sim &) = delete;

    // A control command. A refused one fails the test.
    void control(const std::string &command) const
    {
        simulator->Control(command);
    }
    nlohmann::json stats() const { return simulator->Statistics(); }
    // Number of requests of one kind since the last reset.
    int count(const char *group, const char *operation) const
    {
        return stats()[group].value(operation, 0);
    }
    int afc(const char *operation) const { return count("afc", operation); }
    void resetStats() const { control("stats reset"); }

    // Where the device's media files, its storage and the files of an app are
    // on this machine.
    std::filesystem::path media() const { return devices[0].folder + "/Media"; }
    std::filesystem::path storage() const { return devices[0].Storage(""); }
    std::filesystem::path documents(const std::string &bundle_id) const
    {
        return devices[0].folder + "/Apps/" + bundle_id + "/Documents";
    }

  private:
    TempFolder root;
    std::vector<SampleDevice> devices;
    std::optional<Simulator> simulator;
};

// Sets an environment variable for a scope.
class Setting
{
  public:
    Setting(const char *name, const std::string &value);
    ~Setting();

  private:
    const char *variable;
};

// A context with one opened device; what is still open at the end is closed.
struct Opened {
    libiusb_context *context = nullptr;
    libiusb_device *device = nullptr;

    Opened();
    ~Opened();
    // Opens the first listed device.
    int open();
};

// An opened device with its media connection, on a simulator of its own. The
// end of every test checks that the device has no file and no connection open.
class DeviceTest : public ::testing::Test
{
  protected:
    void start(const Words &run = {}, const Words &make = {});
    void TearDown() override;

    // Makes a file on the device from this side, with bytes that differ from
    // place to place.
    std::string makeFile(const std::string &name, size_t size) const;

    libiusb_file openFile(const std::string &path,
                          int mode = LIBIUSB_MODE_READ) const;
    // One read; the bytes that came, or a failed test.
    Bytes read(libiusb_file file, uint64_t offset, size_t length) const;
    // Reads in order with calls of one size until the end.
    Bytes readAll(libiusb_file file, size_t call = 128 << 10) const;
    // The code of one read or write.
    int readCode(libiusb_file file, uint64_t offset,
                 uint32_t length = 4096) const;
    int write(libiusb_file file, uint64_t offset, const std::string &bytes,
              uint32_t *count = nullptr) const;
    std::vector<std::string> list(const std::string &path) const;
    int info(const std::string &path,
             libiusb_afc_file_info *out = nullptr) const;
    Bytes onDevice(const std::string &name) const;

    std::unique_ptr<Sim> sim;
    std::unique_ptr<Opened> opened;
    libiusb_afc *afc = nullptr;
};

// The content of a file on this machine.
inline Bytes fileBytes(const std::filesystem::path &path)
{
    return Slurp(path);
}

// Bytes that differ from place to place, as makeFile writes them.
Bytes pattern(size_t size, uint64_t offset = 0);

// That a call ends within so many milliseconds.
void expectWithin(double milliseconds, const std::function<void()> &call);
