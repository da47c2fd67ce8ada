#include "simdevice/statistics.h"

namespace sim
{

namespace
{

constexpr const char *kGroups[] = {
    "connections",        "usbmux",
    "lockdown",           "afc",
    "house_arrest",       "installation_proxy",
    "notification_proxy",
};

// Names come from tables and from clients; the latter may hold anything.
std::string quoted(const std::string &text)
{
    std::string out = "\"";
    for (const char c : text) {
        const bool plain = c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
        out += plain ? c : '?';
    }
    return out + "\"";
}

void appendNumber(std::string &out, const char *name, int64_t value)
{
    out += ", " + quoted(name) + ": " + std::to_string(value);
}

} // namespace

void Statistics::count(const std::string &group, const std::string &name)
{
    const std::lock_guard lock(m_mutex);
    m_counts[group][name]++;
}

std::string Statistics::json() const
{
    const std::lock_guard lock(m_mutex);
    std::string out = "{";
    for (const char *group : kGroups) {
        out += (out.size() > 1 ? ", " : "") + quoted(group) + ": {";
        const auto found = m_counts.find(group);
        if (found != m_counts.end()) {
            const char *separator = "";
            for (const auto &[name, number] : found->second) {
                out += separator + quoted(name) + ": " + std::to_string(number);
                separator = ", ";
            }
        }
        out += "}";
    }
    appendNumber(out, "bytes_read", static_cast<int64_t>(bytesRead.load()));
    appendNumber(out, "bytes_written",
                 static_cast<int64_t>(bytesWritten.load()));
    appendNumber(out, "open_files", openFiles);
    appendNumber(out, "house_arrest_connections", houseArrest);
    appendNumber(out, "open_connections", openConnections);
    appendNumber(out, "device_connections", deviceConnections);
    return out + "}";
}

void Statistics::reset()
{
    const std::lock_guard lock(m_mutex);
    m_counts.clear();
    bytesRead = 0;
    bytesWritten = 0;
}

} // namespace sim
