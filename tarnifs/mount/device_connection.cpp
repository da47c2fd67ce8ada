#include "tarnifs/mount/device_connection.h"

#include <cstdint>
#include <cstring>

#include "tarnifs/mount/startup.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "device_init";
constexpr int OPEN_ATTEMPTS = 10;
constexpr unsigned TRUST_WAIT_US = 3000000;
constexpr unsigned AFTER_TRUST_US = 200000;
// A device that asks for trust again and again must not hold the mount for ever.
constexpr int TRUST_PASSES = 10;

// Everything opened on the way; closed again on every way out but success.
struct CONNECTION {
    libiusb_device *device = nullptr;
    libiusb_afc *afc = nullptr;
    libiusb_instproxy *instproxy = nullptr;

    CONNECTION() = default;
    CONNECTION(const CONNECTION &) = delete;
    CONNECTION &operator=(const CONNECTION &) = delete;
    ~CONNECTION() { close(); }

    void close()
    {
        if (instproxy != nullptr) {
            libiusb_instproxy_exit(instproxy);
        }
        if (afc != nullptr) {
            libiusb_afc_exit(afc);
        }
        if (device != nullptr) {
            libiusb_device_close(device);
        }
        release();
    }

    void release()
    {
        instproxy = nullptr;
        afc = nullptr;
        device = nullptr;
    }
};

void logChosen(int index, const libiusb_device_info &info)
{
    QNLog(3, "%s ============================================", SELF);
    QNLog(3, "%s Connected device %d : %p", SELF, index,
          reinterpret_cast<void *>(static_cast<uintptr_t>(info.location_id)));
    QNLog(3, "%s Device Name : %s", SELF, info.device_name);
    QNLog(3, "%s Device iOS Version : %s", SELF, info.ios_version);
    QNLog(3, "%s ============================================\n", SELF);
}

// The first listed device at the location in *chosen. Devices without a
// location (those over Wi-Fi) are never meant.
int chooseDevice(libiusb_context *libctx, unsigned int locationId,
                 libiusb_device **chosen)
{
    libiusb_device **list = nullptr;
    int ret = libiusb_device_get_list(libctx, &list);
    if (ret != 0) {
        QNLog(3, "%s libiusb_device_get_list failed. code : %d", SELF, ret);
        return ret;
    }
    for (int index = 0; list != nullptr && list[index] != nullptr; ++index) {
        libiusb_device_info info{};
        ret = libiusb_device_get_info(list[index], &info);
        if (ret != 0) {
            QNLog(3, "%s libiusb_device_get_info failed. %d", SELF, ret);
            return ret;
        }
        if (info.location_id != 0 && info.location_id == locationId) {
            logChosen(index, info);
            *chosen = list[index];
            return 0;
        }
    }
    QNLog(3, "%s no devices.", SELF);
    return LIBIUSB_ERROR_NO_DEVICE;
}

bool isTrustAwaited(int code)
{
    return code == LIBIUSB_ERROR_TRUST_PENDING ||
           code == LIBIUSB_ERROR_DEVICE_LOCKED;
}

// Opens a device, waiting while it asks its user for trust. *waited tells
// whether it did.
int openTrusted(libiusb_device *chosen, libiusb_device **device, bool *waited)
{
    int ret = 0;
    for (int attempt = 0; attempt < OPEN_ATTEMPTS; ++attempt) {
        ret = libiusb_device_open(chosen, device);
        if (!isTrustAwaited(ret)) {
            break;
        }
        QNLog(3, "%s libiusb fail cause trust dialog. retry(%d/%d)", SELF,
              attempt, OPEN_ATTEMPTS);
        tarniPause(TRUST_WAIT_US);
        *waited = true;
        if (tarniGivenUp()) {
            break;
        }
    }
    if (ret != 0) {
        QNLog(3, "%s libiusb_device_open failed. code : %d", SELF, ret);
    }
    return ret;
}

// A device that has just been trusted is listed and opened afresh: what was
// opened while the prompt was up may lack services.
int openDevice(libiusb_context *libctx, unsigned int locationId,
               CONNECTION *connection)
{
    for (int pass = 0; pass < TRUST_PASSES; ++pass) {
        libiusb_device *chosen = nullptr;
        int ret = chooseDevice(libctx, locationId, &chosen);
        if (ret != 0) {
            return ret;
        }
        bool waited = false;
        ret = openTrusted(chosen, &connection->device, &waited);
        if (ret != 0 || !waited) {
            return ret;
        }
        connection->close();
        tarniPause(AFTER_TRUST_US);
    }
    QNLog(3, "%s libiusb_device_open failed. code : %d", SELF,
          LIBIUSB_ERROR_TRUST_PENDING);
    return LIBIUSB_ERROR_TRUST_PENDING;
}

// A handle that is missing after a success is as much a failure.
int openServices(CONNECTION *connection)
{
    int ret = libiusb_afc_init(connection->device, &connection->afc);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_init failed. code : %d", SELF, ret);
        return ret;
    }
    if (connection->afc == nullptr) {
        QNLog(
            3,
            "%s libiusb_afc_init succeed, but afc_handle is invalid. code : %d",
            SELF, ret);
        return LIBIUSB_ERROR_PROTOCOL;
    }
    ret = libiusb_instproxy_init(connection->device, &connection->instproxy);
    if (ret != 0) {
        QNLog(3, "%s libiusb_instproxy_int failed. code : %d", SELF, ret);
        return ret;
    }
    if (connection->instproxy == nullptr) {
        QNLog(
            3,
            "%s libiusb_instproxy_int succeed, but instproxy_handle is invalid. code : %d",
            SELF, ret);
        return LIBIUSB_ERROR_PROTOCOL;
    }
    return 0;
}

} // namespace

int device_init(_CONTEXT *context, libiusb_context *libctx,
                unsigned int locationId)
{
    CONNECTION connection;
    int ret = openDevice(libctx, locationId, &connection);
    if (ret == 0) {
        ret = openServices(&connection);
    }
    if (ret != 0) {
        return ret;
    }
    libiusb_device_info info{};
    ret = libiusb_device_get_info(connection.device, &info);
    if (ret != 0) {
        QNLog(3, "%s libiusb_device_get_info failed. code : %d", SELF, ret);
        return ret;
    }
    context->device_info = info;
    context->device_handle = connection.device;
    context->afc_handle = connection.afc;
    context->instproxy_handle = connection.instproxy;
    connection.release();
    return 0;
}
