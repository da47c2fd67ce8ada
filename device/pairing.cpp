#include "device/pairing.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include "device/errors.h"
#include "device/libiusb.h"

namespace iusb
{

struct DeviceFree {
    void operator()(idevice_private *device) const { idevice_free(device); }
};
struct ClientFree {
    void operator()(lockdownd_client_private *client) const
    {
        lockdownd_client_free(client);
    }
};

static int pairNow(const std::string &udid, bool network)
{
    idevice_t raw_device = nullptr;
    idevice_new_with_options(&raw_device, udid.c_str(),
                             network ? IDEVICE_LOOKUP_NETWORK
                                     : IDEVICE_LOOKUP_USBMUX);
    std::unique_ptr<idevice_private, DeviceFree> device(raw_device);
    if (!device)
        return LIBIUSB_ERROR_NO_DEVICE;
    lockdownd_client_t raw_client = nullptr;
    lockdownd_error_t error =
        lockdownd_client_new(device.get(), &raw_client, "quorvelfs");
    std::unique_ptr<lockdownd_client_private, ClientFree> client(raw_client);
    if (error != LOCKDOWN_E_SUCCESS || !client)
        return codeOfPairing(error);
    return codeOfPairing(lockdownd_pair(client.get(), nullptr));
}

// What the caller and the pairing thread share; the later of the two frees it.
struct PairingTask {
    std::mutex lock;
    std::condition_variable done;
    std::optional<int> result;
};

int pairDevice(const std::string &udid, bool network, int limit_ms)
{
    auto task = std::make_shared<PairingTask>();
    auto work = [task, udid, network] {
        int result = pairNow(udid, network);
        std::lock_guard<std::mutex> hold(task->lock);
        task->result = result;
        task->done.notify_one();
    };
    std::thread thread;
    try {
        thread = std::thread(work);
    } catch (const std::system_error &) {
        return LIBIUSB_ERROR_NO_MEMORY;
    }
    std::unique_lock<std::mutex> hold(task->lock);
    bool ended = task->done.wait_for(hold, std::chrono::milliseconds(limit_ms),
                                     [&] { return task->result.has_value(); });
    hold.unlock();
    if (!ended) {
        thread.detach();
        return LIBIUSB_ERROR_LOST_CONNECTION;
    }
    // What is left of the thread frees OpenSSL's part of it, which the end of
    // the process must not overtake.
    thread.join();
    return *task->result;
}

} // namespace iusb
