// lockdownd: identity, pairing, sessions, and starting services.

#include <openssl/rand.h>

#include <array>

#include "simdevice/keys.h"
#include "simdevice/lockdown_values.h"
#include "simdevice/services.h"

namespace sim
{

namespace
{

// Random bytes as text of the form 8-4-4-4-12.
std::string newUuid()
{
    unsigned char bytes[16] = {};
    RAND_bytes(bytes, sizeof bytes);
    std::string text;
    for (size_t i = 0; i < sizeof bytes; i++) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        const char *digits = "0123456789ABCDEF";
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

std::string newEscrowBag()
{
    unsigned char bytes[32] = {};
    RAND_bytes(bytes, sizeof bytes);
    return {reinterpret_cast<const char *>(bytes), sizeof bytes};
}

// One lockdown connection. A handler fills the answer and returns "", or the
// error string to answer with.
class Lockdown
{
  public:
    explicit Lockdown(Connection &connection)
        : m_connection(connection), m_device(connection.device)
    {
    }
    void serve();

  private:
    using Handler = const char *(Lockdown::*)(plist_t request, plist_t answer);
    struct Command {
        const char *name;
        Handler handler;
    };
    static const std::array<Command, 10> kCommands;

    bool handle(const Plist &request);
    const char *dispatch(const std::string &name, plist_t request,
                         plist_t answer);
    const char *queryType(plist_t request, plist_t answer);
    const char *getValue(plist_t request, plist_t answer);
    const char *setValue(plist_t request, plist_t answer);
    const char *removeValue(plist_t request, plist_t answer);
    const char *pair(plist_t request, plist_t answer);
    const char *validatePair(plist_t request, plist_t answer);
    const char *unpair(plist_t request, plist_t answer);
    const char *startSession(plist_t request, plist_t answer);
    const char *stopSession(plist_t request, plist_t answer);
    const char *startService(plist_t request, plist_t answer);
    const char *askUser();
    bool beginTls();

    Connection &m_connection;
    Device &m_device;
    std::string m_sessionId; // empty: no session
    std::string m_hostId;    // of the session
    bool m_tlsWanted = false;
};

const std::array<Lockdown::Command, 10> Lockdown::kCommands = {{
    {"QueryType", &Lockdown::queryType},
    {"GetValue", &Lockdown::getValue},
    {"SetValue", &Lockdown::setValue},
    {"RemoveValue", &Lockdown::removeValue},
    {"Pair", &Lockdown::pair},
    {"ValidatePair", &Lockdown::validatePair},
    {"Unpair", &Lockdown::unpair},
    {"StartSession", &Lockdown::startSession},
    {"StopSession", &Lockdown::stopSession},
    {"StartService", &Lockdown::startService},
}};

const char *Lockdown::queryType(plist_t, plist_t answer)
{
    setString(answer, "Type", kLockdownService);
    return "";
}

const char *Lockdown::getValue(plist_t request, plist_t answer)
{
    const auto domain = getString(request, "Domain").value_or("");
    const auto key = getString(request, "Key").value_or("");
    bool locked = false;
    {
        const std::lock_guard lock(m_connection.simulator.mutex);
        locked = m_device.trust.mode == TrustMode::locked;
    }
    const ValueQuery query{domain, key, !m_sessionId.empty(), locked,
                           m_connection.simulator.clockOffset};
    Plist value;
    const char *error = lookUpValue(m_device, query, value);
    if (error[0] != '\0') {
        return error;
    }
    if (!domain.empty()) {
        setString(answer, "Domain", domain);
    }
    if (!key.empty()) {
        setString(answer, "Key", key);
    }
    setNode(answer, "Value", std::move(value));
    return "";
}

const char *Lockdown::setValue(plist_t, plist_t)
{
    return "SetProhibited";
}

const char *Lockdown::removeValue(plist_t, plist_t)
{
    return "RemoveProhibited";
}

// What the person in front of the device says to the trust prompt: "" for yes.
const char *Lockdown::askUser()
{
    const std::lock_guard lock(m_connection.simulator.mutex);
    Trust &trust = m_device.trust;
    switch (trust.mode) {
    case TrustMode::locked:
        return "PasswordProtected";
    case TrustMode::denied:
        return "UserDeniedPairing";
    case TrustMode::pending:
        if (trust.pending > 0) {
            trust.pending--;
            return "PairingDialogResponsePending";
        }
        trust.mode = TrustMode::trusted;
        return "";
    case TrustMode::trusted:
    case TrustMode::stale:
        break;
    }
    return "";
}

const char *Lockdown::pair(plist_t request, plist_t answer)
{
    plist_t record = getNode(request, "PairRecord", PLIST_DICT);
    if (record == nullptr) {
        return "MissingPairRecord";
    }
    const auto hostId = getString(record, "HostID");
    if (!hostId) {
        return "MissingHostID";
    }
    const Host host{getString(record, "SystemBUID").value_or(""),
                    getData(record, "RootCertificate").value_or(""),
                    getData(record, "DeviceCertificate").value_or("")};
    if (!certificateFitsKey(host.deviceCertificate,
                            m_device.identity.privateKey)) {
        return "InvalidPairRecord";
    }
    const char *refusal = askUser();
    if (refusal[0] != '\0') {
        return refusal;
    }
    m_device.pairing.addHost(*hostId, host);
    setData(answer, "EscrowBag", newEscrowBag());
    return "";
}

const char *Lockdown::validatePair(plist_t request, plist_t)
{
    plist_t record = getNode(request, "PairRecord", PLIST_DICT);
    const auto hostId = getString(record, "HostID");
    return hostId && m_device.pairing.host(*hostId) ? "" : "InvalidHostID";
}

const char *Lockdown::unpair(plist_t request, plist_t answer)
{
    const char *error = validatePair(request, answer);
    if (error[0] == '\0') {
        plist_t record = getNode(request, "PairRecord", PLIST_DICT);
        m_device.pairing.removeHost(getString(record, "HostID").value_or(""));
    }
    return error;
}

const char *Lockdown::startSession(plist_t request, plist_t answer)
{
    const auto hostId = getString(request, "HostID");
    if (!m_sessionId.empty()) {
        return "SessionActive";
    }
    if (!hostId) {
        return "MissingHostID";
    }
    if (!m_device.pairing.host(*hostId)) {
        return "InvalidHostID";
    }
    m_sessionId = newUuid();
    m_hostId = *hostId;
    m_tlsWanted = m_connection.simulator.options.tls != TlsUse::off;
    setString(answer, "SessionID", m_sessionId);
    setBool(answer, "EnableSessionSSL", m_tlsWanted);
    return "";
}

const char *Lockdown::stopSession(plist_t request, plist_t)
{
    const auto sessionId = getString(request, "SessionID");
    if (!sessionId) {
        return "MissingSessionID";
    }
    if (m_sessionId.empty()) {
        return "SessionInactive";
    }
    if (*sessionId != m_sessionId) {
        return "InvalidSessionID";
    }
    m_sessionId.clear();
    return "";
}

const char *Lockdown::startService(plist_t request, plist_t answer)
{
    const auto name = getString(request, "Service");
    if (!name) {
        return "MissingService";
    }
    if (m_sessionId.empty()) {
        return "SessionInactive";
    }
    if (!m_device.pairing.host(m_hostId)) {
        return "InvalidHostID"; // the device forgot the host meanwhile
    }
    if (!isService(*name)) {
        return "InvalidService";
    }
    Simulator &simulator = m_connection.simulator;
    const bool tls = simulator.options.tls == TlsUse::all;
    const std::lock_guard lock(simulator.mutex);
    if (m_device.trust.mode == TrustMode::locked) {
        return "PasswordProtected";
    }
    if (countHouseArrest(m_device) >= simulator.options.maxHouseArrest &&
        *name == kHouseArrestService) {
        return "ServiceLimit";
    }
    uint16_t port = 0;
    do {
        port = simulator.nextPort;
        simulator.nextPort =
            static_cast<uint16_t>(port == 62000 ? 49152 : port + 1);
    } while (m_device.ports.contains(port));
    m_device.ports[port] = {*name, m_hostId, tls, Clock::now()};
    setUint(answer, "Port", port);
    setString(answer, "Service", *name);
    if (tls) {
        setBool(answer, "EnableServiceSSL", true);
    }
    return "";
}

const char *Lockdown::dispatch(const std::string &name, plist_t request,
                               plist_t answer)
{
    for (const Command &command : kCommands) {
        if (name == command.name) {
            return (this->*command.handler)(request, answer);
        }
    }
    return "InvalidRequest";
}

bool Lockdown::beginTls()
{
    TlsIdentity identity;
    std::string problem = "host not paired";
    if (tlsIdentityFor(m_device, m_hostId, identity) &&
        m_connection.stream.startTls(identity, problem)) {
        return true;
    }
    trace(m_connection.simulator, "tls lockdown: %s", problem.c_str());
    return false;
}

bool Lockdown::handle(const Plist &request)
{
    const std::string name =
        getString(request.get(), "Request").value_or("unreadable");
    Simulator &simulator = m_connection.simulator;
    simulator.statistics.count("lockdown", name);
    trace(simulator, "lockdown %s", name.c_str());
    const FaultPlan plan =
        simulator.faults.plan(Layer::lockdown, name, m_device.index);
    if (!applyBeforeAnswer(m_connection, plan)) {
        return false;
    }
    m_tlsWanted = false;
    Plist answer = newDict();
    setString(answer.get(), "Request", name);
    const std::string error =
        plan.fail ? *plan.fail : dispatch(name, request.get(), answer.get());
    if (!error.empty()) {
        setString(answer.get(), "Error", error);
        trace(simulator, "lockdown %s: %s", name.c_str(), error.c_str());
    }
    return sendMessage(m_connection, plan, answer) &&
           (!m_tlsWanted || beginTls());
}

void Lockdown::serve()
{
    while (const Plist request = readMessage(m_connection.stream)) {
        if (!handle(request)) {
            break;
        }
    }
}

} // namespace

void serveLockdown(Connection &connection)
{
    Lockdown(connection).serve();
}

} // namespace sim
