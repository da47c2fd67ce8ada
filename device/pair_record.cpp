#include "device/pair_record.h"

#include "device/plist_tools.h"

namespace iusb
{

std::optional<PairRecord> parsePairRecord(std::string_view bytes)
{
    Plist plist = parsePlist(bytes);
    auto host_id = getString(plist.get(), "HostID");
    if (!host_id || host_id->empty())
        return std::nullopt;
    PairRecord record;
    record.host_id = *host_id;
    record.system_buid =
        getString(plist.get(), "SystemBUID").value_or(std::string());
    // The root pair: devices take it as well as the host pair, and it is what
    // pairing software has always presented.
    record.certificate =
        getData(plist.get(), "RootCertificate").value_or(std::string());
    record.private_key =
        getData(plist.get(), "RootPrivateKey").value_or(std::string());
    return record;
}

} // namespace iusb
