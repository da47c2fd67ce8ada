#include "simdevice/pairing.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "simdevice/device_folder.h"
#include "simdevice/plist.h"

namespace sim
{

std::string Pairing::load(const std::string &folder)
{
    const std::lock_guard lock(m_mutex);
    m_path = folder + "/pairing.plist";
    std::string text;
    if (!readFile(m_path, text)) {
        return {};
    }
    const Plist list = fromXml(text);
    if (!list) {
        return m_path + ": not an XML property list";
    }
    m_record = getData(list.get(), "PairRecordData");
    plist_t hosts = getNode(list.get(), "Hosts", PLIST_ARRAY);
    const uint32_t count = hosts != nullptr ? plist_array_get_size(hosts) : 0;
    for (uint32_t i = 0; i < count; i++) {
        plist_t entry = plist_array_get_item(hosts, i);
        const auto hostId = getString(entry, "HostID");
        if (hostId) {
            m_hosts[*hostId] = {
                getString(entry, "SystemBUID").value_or(""),
                getData(entry, "RootCertificate").value_or(""),
                getData(entry, "DeviceCertificate").value_or("")};
        }
    }
    return {};
}

// Called with the lock held. A folder that cannot be written costs only the
// memory of the next start.
void Pairing::store() const
{
    const Plist list = newDict();
    if (m_record) {
        setData(list.get(), "PairRecordData", *m_record);
    }
    Plist hosts = newArray();
    for (const auto &[hostId, host] : m_hosts) {
        Plist entry = newDict();
        setString(entry.get(), "HostID", hostId);
        setString(entry.get(), "SystemBUID", host.systemBuid);
        setData(entry.get(), "RootCertificate", host.rootCertificate);
        setData(entry.get(), "DeviceCertificate", host.deviceCertificate);
        append(hosts.get(), std::move(entry));
    }
    setNode(list.get(), "Hosts", std::move(hosts));
    if (!writeFile(m_path, toXml(list.get()))) {
        std::fprintf(stderr, "quorvel-simdevice: %s: %s\n", m_path.c_str(),
                     errorText(errno).c_str());
    }
}

std::optional<std::string> Pairing::record() const
{
    const std::lock_guard lock(m_mutex);
    return m_record;
}

void Pairing::saveRecord(const std::string &bytes)
{
    const std::lock_guard lock(m_mutex);
    m_record = bytes;
    store();
}

bool Pairing::deleteRecord()
{
    const std::lock_guard lock(m_mutex);
    const bool existed = m_record.has_value();
    m_record.reset();
    if (existed) {
        store();
    }
    return existed;
}

std::optional<Host> Pairing::host(const std::string &hostId) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_hosts.find(hostId);
    return found != m_hosts.end() ? std::optional(found->second) : std::nullopt;
}

void Pairing::addHost(const std::string &hostId, const Host &host)
{
    const std::lock_guard lock(m_mutex);
    m_hosts[hostId] = host;
    store();
}

void Pairing::removeHost(const std::string &hostId)
{
    const std::lock_guard lock(m_mutex);
    if (m_hosts.erase(hostId) > 0) {
        store();
    }
}

void Pairing::makeStale(const std::string &systemBuid)
{
    const std::lock_guard lock(m_mutex);
    m_hosts.clear();
    if (!m_record) {
        const Plist record = newDict();
        setString(record.get(), "HostID",
                  "11111111-2222-3333-4444-555555555555");
        setString(record.get(), "SystemBUID", systemBuid);
        m_record = toXml(record.get());
    }
    store();
}

bool Pairing::isUnused() const
{
    const std::lock_guard lock(m_mutex);
    return !m_record && m_hosts.empty();
}

} // namespace sim
