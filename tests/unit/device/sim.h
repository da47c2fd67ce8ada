// A simulated device in a process of its own for one test, and an opened
// connection to it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "device/libiusb.h"

// The content of a file; a failed comparison tells no more than its size and
// beginning.
struct Bytes : std::string {
    using std::string::string;
    Bytes(std::string text) : std::string(std::move(text)) {}
};
void PrintTo(const Bytes &bytes, std::ostream *out);

// Runs quorvel-simdevice over device folders of its own, in a folder that is
// removed at the end; USBMUXD_SOCKET_ADDRESS points at it meanwhile.
class Sim
{
  public:
    // `make` are further options of "quorvel-simdevice make", one set for each
    // device; `run` those of "quorvel-simdevice run".
    explicit Sim(const std::vector<std::string> &run = {},
                 const std::vector<std::vector<std::string>> &make = {{}});
    ~Sim();
    Sim(const Sim &) = delete;
    Sim &operator=(const Sim &) = delete;

    // Sends a control command and gives the answer without its "ok ". A refused
    // command fails the test.
    std::string control(const std::string &command) const;

    nlohmann::json stats() const;
    // Number of AFC requests of one kind since the last reset.
    int afc(const std::string &operation) const;
    void resetStats() const { control("stats reset"); }

    // Where the device's media files, and the files of an app, are on this
    // machine.
    std::filesystem::path media(int device = 0) const;
    std::filesystem::path documents(const std::string &bundle_id) const;
    std::filesystem::path folder() const { return root; }

  private:
    std::filesystem::path root;
    pid_t process = -1;
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
    void start(const std::vector<std::string> &run = {},
               const std::vector<std::string> &make = {});
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
    std::vector<std::string> list(const std::string &path) const;
    int info(const std::string &path,
             libiusb_afc_file_info *out = nullptr) const;

    std::unique_ptr<Sim> sim;
    std::unique_ptr<Opened> opened;
    libiusb_afc *afc = nullptr;
};

// Bytes that differ from place to place, as makeFile writes them.
Bytes pattern(size_t size, uint64_t offset = 0);
void writeFile(const std::filesystem::path &path, const std::string &bytes);
Bytes fileBytes(const std::filesystem::path &path);

// Milliseconds that a call takes.
int64_t duration(const std::function<void()> &call);
