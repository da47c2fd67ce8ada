// TLS over a wire, from the device's side.
#pragma once

#include <memory>
#include <string>

#include "simdevice/wire.h"

namespace sim
{

// What a TLS handshake with a paired host needs; all PEM.
struct TlsIdentity {
    std::string privateKey;        // the device's own
    std::string deviceCertificate; // made by the host when it paired
    std::string rootCertificate;   // the host must show one that this signed
};

class Tls
{
  public:
    enum class Result { data, closed, failed };

    // Waits for the client's handshake. Null if it fails; `problem` says why.
    static std::unique_ptr<Tls> accept(Wire &wire, const TlsIdentity &identity,
                                       std::string &problem);
    ~Tls();
    Tls(const Tls &) = delete;
    Tls &operator=(const Tls &) = delete;

    // Fills all of `size` bytes. `closed`: the client ended TLS in good order
    // before the first of them; the wire goes on without.
    Result read(void *bytes, size_t size);
    bool write(const void *bytes, size_t size);

    // Bytes that were decrypted and not yet read.
    bool hasPending() const;

    // Answers the client's end of TLS with ours.
    void shutdown();

  private:
    struct Parts;
    explicit Tls(std::unique_ptr<Parts> parts);
    std::unique_ptr<Parts> m_parts;
};

// True if the certificate parses and belongs to the private key.
bool certificateFitsKey(const std::string &certificatePem,
                        const std::string &privatePem);

} // namespace sim
