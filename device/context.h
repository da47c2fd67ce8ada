// The context: settings, the device list it owns, and the open files of all its
// connections.
#pragma once

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <vector>

#include "device/libiusb.h"

namespace iusb
{

struct AfcFile;

struct Settings {
    // Longest wait without any progress, in ms (QUORVEL_TIMEOUT_MS).
    int timeout_ms = 10'000;
    // Most requests in flight on one AFC connection; 1: one at a time, nothing
    // is sent ahead (QUORVEL_AFC_WINDOW).
    size_t afc_window = 512;
};

// The settings as the environment has them now; what is no number or out of
// range counts as not set.
Settings readSettings();

// Runs the body of a public function: running out of memory inside it becomes
// its code, since no exception may leave this layer.
template <typename Body>
int guarded(Body body) noexcept
{
    try {
        return body();
    } catch (const std::exception &) {
        return LIBIUSB_ERROR_NO_MEMORY;
    }
}

} // namespace iusb

struct libiusb_context {
    iusb::Settings settings;
    std::vector<std::unique_ptr<libiusb_device>> devices;
    std::vector<libiusb_device *> listed; // `devices` and a null
    // Counts the changes made to any device; what was read ahead under an
    // earlier count is out of date.
    uint64_t changes = 1;
    std::map<libiusb_file, std::unique_ptr<iusb::AfcFile>> files;

    libiusb_context();
    ~libiusb_context();
};
