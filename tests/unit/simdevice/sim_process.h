// A running simulator for one test, and a client that knows the wire and
// nothing else: what tests compare with must not come from the simulator.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace simtest
{

// A temporary folder that goes with the object.
class TempFolder
{
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;
    const std::string &path() const { return m_path; }

  private:
    std::string m_path;
};

struct RunResult {
    int status = -1; // of the exit; -1: not found, or ended by a signal
    std::string output;
};

// Runs a program to its end with standard output and error in `output`.
RunResult runProgram(const std::vector<std::string> &arguments);

// Runs "quorvel-simdevice make" for a folder below `folder`; returns its path.
// The host "TEST-HOST" is paired with it, so that sessions without TLS need no
// keys.
std::string makeDevice(const TempFolder &folder, const std::string &name,
                       const std::vector<std::string> &options = {});

// "quorvel-simdevice run" over device folders, until the object goes. Fails the
// test if the program does not end cleanly.
class SimProcess
{
  public:
    SimProcess(const TempFolder &folder,
               const std::vector<std::string> &devices,
               const std::vector<std::string> &options = {});
    ~SimProcess();
    SimProcess(const SimProcess &) = delete;
    SimProcess &operator=(const SimProcess &) = delete;

    const std::string &socketPath() const { return m_socket; }
    const std::string &controlPath() const { return m_control; }

    // Sends a command; returns the answer without its newline.
    std::string control(const std::string &command) const;
    nlohmann::json stats() const;

    // Waits (5 s at most) until a gauge has a value.
    bool waitFor(const char *gauge, int64_t value) const;

  private:
    std::string m_socket;
    std::string m_control;
    pid_t m_pid = -1;
    int m_output = -1;
};

// A plain client socket with limits on every wait (5 s).
class RawSocket
{
  public:
    explicit RawSocket(const std::string &path);
    ~RawSocket();
    RawSocket(const RawSocket &) = delete;
    RawSocket &operator=(const RawSocket &) = delete;

    bool send(const std::string &bytes) const;
    // Exactly `size` bytes, or fewer at the end of the stream or the limit.
    std::string receive(size_t size) const;
    // Whatever comes within the time, up to `size`; empty: nothing or the end.
    std::string receiveSome(size_t size, int limitMs) const;
    bool
    ended(int limitMs = 5000) const; // the peer closed, and nothing is left
    int fd() const { return m_fd; }

  private:
    int m_fd;
};

// usbmux.
std::string usbmuxFrame(const std::string &xmlBody, uint32_t tag = 1);
std::string muxRequest(const std::string &type, const std::string &more = {});
// The payload of the next message; empty if none comes.
std::string readMux(const RawSocket &socket);
// The integer after <key>name</key>.
std::optional<uint64_t> integerOf(const std::string &xml,
                                  const std::string &key);

// Sends Connect; true if the daemon answers with success.
bool muxConnect(const RawSocket &socket, uint32_t deviceId, uint16_t port);

// Messages of lockdown and the services.
std::string plistMessage(const std::string &dictBody);
std::string readPlistMessage(const RawSocket &socket);

// Lockdown: a session as TEST-HOST; false if any answer is an error.
bool startSession(const RawSocket &lockdown);
// The port of a started service, or 0.
uint16_t startService(const RawSocket &lockdown, const std::string &service);

struct AfcPacket {
    uint64_t entire = 0;
    uint64_t fixedEnd = 0;
    uint64_t number = 0;
    uint64_t operation = 0;
    std::string fixed;
    std::string bulk;
    bool valid = false; // header was there, with the magic

    uint64_t status() const; // of a status packet
    uint64_t value() const;  // the number in the fixed part
};

std::string afcRequest(uint64_t number, uint64_t operation,
                       const std::string &fixed, const std::string &bulk = {});
std::string u64(uint64_t value);

// An AFC connection to the first device of a simulator (without TLS).
class RawAfc
{
  public:
    explicit RawAfc(const SimProcess &sim, uint32_t deviceId = 1,
                    const std::string &bundleId = {});
    bool connected() const { return m_connected; }
    const RawSocket &socket() const { return m_socket; }

    AfcPacket call(uint64_t operation, const std::string &fixed,
                   const std::string &bulk = {});
    bool post(uint64_t operation, const std::string &fixed,
              const std::string &bulk = {}); // without waiting
    AfcPacket next() const;
    uint64_t lastNumber() const { return m_number; }
    uint64_t open(const std::string &path, uint64_t mode); // 0 on failure

  private:
    RawSocket m_socket;
    uint64_t m_number = 0;
    bool m_connected = false;
};

} // namespace simtest
