// A sample device on disk:
//
//   device.plist   identity, location, capacity, trust, apps, the device's key
//   pairing.plist  who is paired (pairing.h); made when somebody pairs
//   Media/         the root of the media file system
//   Apps/<bundle id>/Documents/   what an app shares
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim
{

struct App {
    std::string bundleId;
    std::string name;
    std::string version = "1.0";
    bool user = true;     // as against one that belongs to the system
    bool sharing = false; // UIFileSharingEnabled
};

enum class TrustMode { trusted, pending, locked, denied, stale };

// What a device answers to somebody who is not paired with it.
struct Trust {
    TrustMode mode = TrustMode::trusted;
    uint32_t pending = 0; // prompts not answered before the user accepts
};

struct Identity {
    std::string udid = "00008110-000A1C2E3F40801E";
    std::string name = "Anna's iPhone";
    std::string iosVersion = "17.5.1";
    std::string buildVersion = "21F90";
    std::string productType = "iPhone14,2";
    std::string deviceClass = "iPhone";
    std::string modelNumber = "MLL93";
    std::string hardwareModel = "D63AP";
    std::string serialNumber = "F2LXK0QPN7";
    std::string wifiAddress = "a4:83:e7:2b:10:5c";
    uint32_t locationId = 336723968;
    uint32_t productId = 0x12A8;
    uint64_t connectionSpeed = 480000000;
    uint64_t capacity = 64'000'000'000;
    uint64_t freeSpace = 32'000'000'000; // with contentBytes of files
    uint64_t contentBytes = 0;           // of Media and Apps when made
    uint64_t blockSize = 4096;
    Trust trust;
    std::string privateKey; // PEM
    std::vector<App> apps;
};

// "trusted", "pending:N", "locked", "denied" or "stale". False for other text.
bool parseTrust(const std::string &text, Trust &trust);
std::string trustText(const Trust &trust);

// Both return an empty string, or what is wrong in words for the user.
std::string readIdentity(const std::string &folder, Identity &identity);
std::string writeIdentity(const std::string &folder, const Identity &identity);

// The space that a file of this size takes.
uint64_t roundToBlock(uint64_t size, uint64_t blockSize);

// The space that the files of a device folder take now.
uint64_t measureContent(const std::string &folder, uint64_t blockSize);

// Reads a whole small file; writes one whole (through a temporary file) and
// gives it mode 0644. False, with errno set, on failure.
bool readFile(const std::string &path, std::string &text);
bool writeFile(const std::string &path, const std::string &text);

// The text of an error number.
std::string errorText(int error);

} // namespace sim
