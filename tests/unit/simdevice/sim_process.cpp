#include "sim_process.h"

#include <arpa/inet.h>
#include <endian.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

namespace simtest
{

namespace
{

constexpr int kLimitMs = 5000;
constexpr int kNotFound = 127; // of a program, as shells say it

// Starts a program with its standard output (and error, if wanted) in a pipe.
// It ends with this process, so that a test that dies leaves nothing behind.
pid_t startProgram(const std::vector<std::string> &arguments, bool withErrors,
                   int &output)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    std::vector<char *> argv;
    for (const std::string &argument : arguments) {
        argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        if (withErrors) {
            dup2(ends[1], STDERR_FILENO);
        }
        execvp(argv[0], argv.data());
        _exit(kNotFound);
    }
    close(ends[1]);
    output = ends[0];
    return pid;
}

const std::string kPairing =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
    "<key>Hosts</key><array><dict><key>HostID</key><string>TEST-HOST</string>"
    "</dict></array></dict></plist>";

} // namespace

TempFolder::TempFolder()
{
    const std::filesystem::path base = std::filesystem::temp_directory_path();
    m_path = (base / "simtest-XXXXXX").string();
    EXPECT_NE(mkdtemp(m_path.data()), nullptr);
}

TempFolder::~TempFolder()
{
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
}

RunResult runProgram(const std::vector<std::string> &arguments)
{
    RunResult result;
    int output = -1;
    const pid_t pid = startProgram(arguments, true, output);
    if (pid < 0) {
        close(output);
        return result;
    }
    char piece[4096];
    ssize_t n = 0;
    while ((n = read(output, piece, sizeof piece)) > 0) {
        result.output.append(piece, static_cast<size_t>(n));
    }
    close(output);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) && WEXITSTATUS(status) != kNotFound
                        ? WEXITSTATUS(status)
                        : -1;
    return result;
}

std::string makeDevice(const TempFolder &folder, const std::string &name,
                       const std::vector<std::string> &options)
{
    const std::string path = folder.path() + "/" + name;
    std::vector<std::string> arguments = {SIM_PROGRAM, "make", path};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const RunResult result = runProgram(arguments);
    EXPECT_EQ(result.status, 0) << result.output;
    std::ofstream(path + "/pairing.plist") << kPairing;
    return path;
}

SimProcess::SimProcess(const TempFolder &folder,
                       const std::vector<std::string> &devices,
                       const std::vector<std::string> &options)
    : m_socket(folder.path() + "/usbmux"), m_control(folder.path() + "/control")
{
    std::vector<std::string> arguments = {SIM_PROGRAM, "run",       "--socket",
                                          m_socket,    "--control", m_control};
    for (const std::string &device : devices) {
        arguments.insert(arguments.end(), {"--device", device});
    }
    arguments.insert(arguments.end(), options.begin(), options.end());
    m_pid = startProgram(arguments, false, m_output);
    char line[16] = {};
    EXPECT_EQ(read(m_output, line, sizeof line - 1), 6);
    EXPECT_STREQ(line, "ready\n");
}

SimProcess::~SimProcess()
{
    kill(m_pid, SIGTERM);
    int status = -1;
    waitpid(m_pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_FALSE(std::filesystem::exists(m_socket));
    EXPECT_FALSE(std::filesystem::exists(m_control));
    close(m_output);
}

std::string SimProcess::control(const std::string &command) const
{
    const RawSocket socket(m_control);
    EXPECT_TRUE(socket.send(command + "\n"));
    std::string answer;
    while (answer.find('\n') == std::string::npos) {
        const std::string piece = socket.receiveSome(4096, kLimitMs);
        if (piece.empty()) {
            ADD_FAILURE() << "no answer to " << command;
            return answer;
        }
        answer += piece;
    }
    answer.pop_back();
    return answer;
}

nlohmann::json SimProcess::stats() const
{
    const std::string answer = control("stats");
    return nlohmann::json::parse(answer.substr(3));
}

bool SimProcess::waitFor(const char *gauge, int64_t value) const
{
    for (int i = 0; i < 500; i++) {
        if (stats()[gauge] == value) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

RawSocket::RawSocket(const std::string &path)
    : m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(m_fd, reinterpret_cast<const sockaddr *>(&address),
                      sizeof address),
              0)
        << path << ": " << std::strerror(errno);
}

RawSocket::~RawSocket()
{
    close(m_fd);
}

bool RawSocket::send(const std::string &bytes) const
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::send(m_fd, bytes.data() + done, bytes.size() - done,
                                 MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

std::string RawSocket::receiveSome(size_t size, int limitMs) const
{
    pollfd entry{m_fd, POLLIN, 0};
    if (poll(&entry, 1, limitMs) <= 0) {
        return {};
    }
    std::string bytes(size, '\0');
    const ssize_t n = recv(m_fd, bytes.data(), size, 0);
    bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return bytes;
}

std::string RawSocket::receive(size_t size) const
{
    std::string bytes;
    while (bytes.size() < size) {
        const std::string piece = receiveSome(size - bytes.size(), kLimitMs);
        if (piece.empty()) {
            break;
        }
        bytes += piece;
    }
    return bytes;
}

bool RawSocket::ended(int limitMs) const
{
    pollfd entry{m_fd, POLLIN, 0};
    char byte = 0;
    return poll(&entry, 1, limitMs) > 0 && recv(m_fd, &byte, 1, 0) <= 0;
}

// ---------------------------------------------------------------------------
// usbmux

std::string usbmuxFrame(const std::string &xmlBody, uint32_t tag)
{
    const std::string payload = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                                "<plist version=\"1.0\"><dict>" +
                                xmlBody + "</dict></plist>";
    const uint32_t header[4] = {
        htole32(static_cast<uint32_t>(16 + payload.size())), htole32(1),
        htole32(8), htole32(tag)};
    std::string bytes(sizeof header, '\0');
    std::memcpy(bytes.data(), header, sizeof header);
    return bytes + payload;
}

std::string muxRequest(const std::string &type, const std::string &more)
{
    return usbmuxFrame("<key>MessageType</key><string>" + type + "</string>" +
                       more);
}

std::string readMux(const RawSocket &socket)
{
    const std::string header = socket.receive(16);
    if (header.size() < 16) {
        return {};
    }
    uint32_t length = 0;
    std::memcpy(&length, header.data(), sizeof length);
    return socket.receive(le32toh(length) - 16);
}

std::optional<uint64_t> integerOf(const std::string &xml,
                                  const std::string &key)
{
    const std::string mark = "<key>" + key + "</key>";
    const size_t at = xml.find(mark);
    const size_t value = xml.find("<integer>", at);
    if (at == std::string::npos || value == std::string::npos) {
        return std::nullopt;
    }
    return std::strtoull(xml.c_str() + value + 9, nullptr, 10);
}

bool muxConnect(const RawSocket &socket, uint32_t deviceId, uint16_t port)
{
    const std::string more = "<key>DeviceID</key><integer>" +
                             std::to_string(deviceId) +
                             "</integer><key>PortNumber</key><integer>" +
                             std::to_string(htons(port)) + "</integer>";
    return socket.send(muxRequest("Connect", more)) &&
           integerOf(readMux(socket), "Number") == 0U;
}

// ---------------------------------------------------------------------------
// Lockdown

std::string plistMessage(const std::string &dictBody)
{
    const std::string frame = usbmuxFrame(dictBody).substr(16);
    const uint32_t length = htonl(static_cast<uint32_t>(frame.size()));
    std::string bytes(sizeof length, '\0');
    std::memcpy(bytes.data(), &length, sizeof length);
    return bytes + frame;
}

std::string readPlistMessage(const RawSocket &socket)
{
    const std::string prefix = socket.receive(4);
    if (prefix.size() < 4) {
        return {};
    }
    uint32_t length = 0;
    std::memcpy(&length, prefix.data(), sizeof length);
    return socket.receive(ntohl(length));
}

bool startSession(const RawSocket &lockdown)
{
    lockdown.send(plistMessage("<key>Request</key><string>StartSession"
                               "</string><key>HostID</key><string>TEST-HOST"
                               "</string>"));
    const std::string answer = readPlistMessage(lockdown);
    return answer.find("SessionID") != std::string::npos;
}

uint16_t startService(const RawSocket &lockdown, const std::string &service)
{
    lockdown.send(plistMessage("<key>Request</key><string>StartService"
                               "</string><key>Service</key><string>" +
                               service + "</string>"));
    const auto port = integerOf(readPlistMessage(lockdown), "Port");
    return static_cast<uint16_t>(port.value_or(0));
}

// ---------------------------------------------------------------------------
// AFC

std::string u64(uint64_t value)
{
    const uint64_t little = htole64(value);
    std::string bytes(sizeof little, '\0');
    std::memcpy(bytes.data(), &little, sizeof little);
    return bytes;
}

std::string afcRequest(uint64_t number, uint64_t operation,
                       const std::string &fixed, const std::string &bulk)
{
    return "CFA6LPAA" + u64(40 + fixed.size() + bulk.size()) +
           u64(40 + fixed.size()) + u64(number) + u64(operation) + fixed + bulk;
}

uint64_t AfcPacket::value() const
{
    uint64_t first = 0;
    if (fixed.size() >= sizeof first) {
        std::memcpy(&first, fixed.data(), sizeof first);
    }
    return le64toh(first);
}

uint64_t AfcPacket::status() const
{
    return valid && operation == 1 ? value() : UINT64_MAX;
}

RawAfc::RawAfc(const SimProcess &sim, uint32_t deviceId,
               const std::string &bundleId)
    : m_socket(sim.socketPath())
{
    const RawSocket lockdown(sim.socketPath());
    if (!muxConnect(lockdown, deviceId, 62078) || !startSession(lockdown)) {
        return;
    }
    const uint16_t port = startService(
        lockdown,
        bundleId.empty() ? "com.apple.afc" : "com.apple.mobile.house_arrest");
    m_connected = port != 0 && muxConnect(m_socket, deviceId, port);
    if (m_connected && !bundleId.empty()) {
        m_socket.send(plistMessage("<key>Command</key><string>VendDocuments"
                                   "</string><key>Identifier</key><string>" +
                                   bundleId + "</string>"));
        m_connected =
            readPlistMessage(m_socket).find("Complete") != std::string::npos;
    }
}

bool RawAfc::post(uint64_t operation, const std::string &fixed,
                  const std::string &bulk)
{
    return m_socket.send(afcRequest(++m_number, operation, fixed, bulk));
}

AfcPacket RawAfc::next() const
{
    AfcPacket packet;
    const std::string header = m_socket.receive(40);
    if (header.size() < 40) {
        return packet;
    }
    uint64_t fields[4];
    std::memcpy(fields, header.data() + 8, sizeof fields);
    packet.entire = le64toh(fields[0]);
    packet.fixedEnd = le64toh(fields[1]);
    packet.number = le64toh(fields[2]);
    packet.operation = le64toh(fields[3]);
    packet.valid = header.starts_with("CFA6LPAA");
    if (packet.fixedEnd >= 40 && packet.entire >= packet.fixedEnd &&
        packet.entire < (uint64_t{1} << 30)) {
        packet.fixed = m_socket.receive(packet.fixedEnd - 40);
        packet.bulk = m_socket.receive(packet.entire - packet.fixedEnd);
    }
    return packet;
}

AfcPacket RawAfc::call(uint64_t operation, const std::string &fixed,
                       const std::string &bulk)
{
    return post(operation, fixed, bulk) ? next() : AfcPacket();
}

uint64_t RawAfc::open(const std::string &path, uint64_t mode)
{
    const AfcPacket packet = call(0x0D, u64(mode) + path + '\0');
    return packet.operation == 0x0E ? packet.value() : 0;
}

} // namespace simtest
