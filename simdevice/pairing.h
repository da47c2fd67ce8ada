// Who is paired with a device: the record that the usbmux daemon keeps for the
// host, and the hosts that the device itself remembers. Both live in
// pairing.plist of the device folder, so that a restart still knows them. They
// are apart because real ones get apart: a device forgets a host whose record
// the daemon still hands out.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace sim
{

struct Host {
    std::string systemBuid;
    std::string rootCertificate;
    std::string deviceCertificate;
};

// Any thread may call any of these.
class Pairing
{
  public:
    // Reads what is there. A damaged file is an error text; none is none.
    std::string load(const std::string &folder);

    // The daemon's side: opaque bytes.
    std::optional<std::string> record() const;
    void saveRecord(const std::string &bytes);
    bool deleteRecord(); // false if there was none

    // The device's side.
    std::optional<Host> host(const std::string &hostId) const;
    void addHost(const std::string &hostId, const Host &host);
    void removeHost(const std::string &hostId);

    // The device forgets every host; the daemon's record stays, and one that
    // no device knows is made if there is none.
    void makeStale(const std::string &systemBuid);
    bool isUnused() const; // neither record nor hosts

  private:
    void store() const;

    mutable std::mutex m_mutex;
    std::string m_path;
    std::optional<std::string> m_record;
    std::map<std::string, Host> m_hosts;
};

} // namespace sim
