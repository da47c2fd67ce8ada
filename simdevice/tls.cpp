#include "simdevice/tls.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "simdevice/openssl_handle.h"

namespace sim
{

namespace
{

using Memory = OpensslHandle<BIO, BIO_free_all>;
using Certificate = OpensslHandle<X509, X509_free>;
using Key = OpensslHandle<EVP_PKEY, EVP_PKEY_free>;
using Context = OpensslHandle<SSL_CTX, SSL_CTX_free>;
using Session = OpensslHandle<SSL, SSL_free>;

// The transport that OpenSSL reads and writes: the wire. OpenSSL asks for
// exactly the bytes that it needs next (no read-ahead), so that nothing that
// follows the end of TLS is taken by it.
int wireRead(BIO *bio, char *bytes, int size)
{
    auto *wire = static_cast<Wire *>(BIO_get_data(bio));
    const size_t n = wire->receive(bytes, static_cast<size_t>(size));
    BIO_clear_retry_flags(bio);
    return n > 0 ? static_cast<int>(n) : -1;
}

int wireWrite(BIO *bio, const char *bytes, int size)
{
    auto *wire = static_cast<Wire *>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    return wire->send(copyBuffer(bytes, static_cast<size_t>(size))) ? size : -1;
}

long wireControl(BIO *, int command, long, void *)
{
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

const BIO_METHOD *wireMethod()
{
    static BIO_METHOD *const method = [] {
        BIO_METHOD *made = BIO_meth_new(
            BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "simulated wire");
        BIO_meth_set_read(made, wireRead);
        BIO_meth_set_write(made, wireWrite);
        BIO_meth_set_ctrl(made, wireControl);
        return made;
    }();
    return method;
}

Certificate parseCertificate(const std::string &pem)
{
    const Memory memory(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Certificate(
        PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr));
}

Key parseKey(const std::string &pem)
{
    const Memory memory(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Key(
        PEM_read_bio_PrivateKey(memory.get(), nullptr, nullptr, nullptr));
}

std::string lastError()
{
    char text[256] = "unknown";
    const unsigned long code = ERR_get_error();
    if (code != 0) {
        ERR_error_string_n(code, text, sizeof text);
    }
    ERR_clear_error();
    return text;
}

// Hosts sign with SHA-1 and differ in what certificate they show (the root
// itself, or one that it signed); only the chain to the paired root counts.
bool trustRoot(SSL_CTX *context, const std::string &rootPem)
{
    const Certificate root = parseCertificate(rootPem);
    X509_STORE *store = SSL_CTX_get_cert_store(context);
    if (!root || X509_STORE_add_cert(store, root.get()) != 1) {
        return false;
    }
    X509_STORE_set_flags(store, X509_V_FLAG_NO_CHECK_TIME);
    SSL_CTX_set_purpose(context, X509_PURPOSE_ANY);
    SSL_CTX_set_verify(
        context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    return true;
}

Context makeContext(const TlsIdentity &identity)
{
    Context context(SSL_CTX_new(TLS_server_method()));
    const Certificate certificate =
        parseCertificate(identity.deviceCertificate);
    const Key key = parseKey(identity.privateKey);
    if (!context || !certificate || !key) {
        return {};
    }
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(context.get(), 0);
    if (SSL_CTX_use_certificate(context.get(), certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), key.get()) != 1 ||
        !trustRoot(context.get(), identity.rootCertificate)) {
        return {};
    }
    return context;
}

} // namespace

struct Tls::Parts {
    Context context;
    Session session;
};

Tls::Tls(std::unique_ptr<Parts> parts) : m_parts(std::move(parts)) {}
Tls::~Tls() = default;

std::unique_ptr<Tls> Tls::accept(Wire &wire, const TlsIdentity &identity,
                                 std::string &problem)
{
    auto parts = std::make_unique<Parts>();
    parts->context = makeContext(identity);
    if (!parts->context) {
        problem = "no TLS context: " + lastError();
        return nullptr;
    }
    parts->session.reset(SSL_new(parts->context.get()));
    BIO *bio = BIO_new(wireMethod());
    if (!parts->session || bio == nullptr) {
        BIO_free(bio);
        problem = lastError();
        return nullptr;
    }
    BIO_set_data(bio, &wire);
    BIO_set_init(bio, 1);
    SSL_set_bio(parts->session.get(), bio, bio);
    if (SSL_accept(parts->session.get()) != 1) {
        problem = lastError();
        return nullptr;
    }
    return std::unique_ptr<Tls>(new Tls(std::move(parts)));
}

Tls::Result Tls::read(void *bytes, size_t size)
{
    auto *target = static_cast<uint8_t *>(bytes);
    size_t done = 0;
    while (done < size) {
        size_t n = 0;
        if (SSL_read_ex(m_parts->session.get(), target + done, size - done,
                        &n) != 1) {
            const bool orderly = (SSL_get_shutdown(m_parts->session.get()) &
                                  SSL_RECEIVED_SHUTDOWN) != 0;
            ERR_clear_error();
            return orderly && done == 0 ? Result::closed : Result::failed;
        }
        done += n;
    }
    return Result::data;
}

bool Tls::write(const void *bytes, size_t size)
{
    const auto *source = static_cast<const uint8_t *>(bytes);
    size_t done = 0;
    while (done < size) {
        size_t n = 0;
        if (SSL_write_ex(m_parts->session.get(), source + done, size - done,
                         &n) != 1) {
            ERR_clear_error();
            return false;
        }
        done += n;
    }
    return true;
}

bool Tls::hasPending() const
{
    return SSL_pending(m_parts->session.get()) > 0;
}

void Tls::shutdown()
{
    SSL_shutdown(m_parts->session.get());
    ERR_clear_error();
}

bool certificateFitsKey(const std::string &certificatePem,
                        const std::string &privatePem)
{
    const Certificate certificate = parseCertificate(certificatePem);
    const Key key = parseKey(privatePem);
    const bool fits = certificate && key &&
                      X509_check_private_key(certificate.get(), key.get()) == 1;
    ERR_clear_error();
    return fits;
}

} // namespace sim
