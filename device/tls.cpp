#include "device/tls.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>

#include "device/libiusb.h"

namespace iusb
{

// ---------------------------------------------------------------------------
// A BIO over a socket whose writes cannot raise SIGPIPE. The descriptor stays
// the stream's: the BIO only borrows it.

static int bioFd(BIO *bio)
{
    return static_cast<int>(reinterpret_cast<intptr_t>(BIO_get_data(bio)));
}

static int bioWrite(BIO *bio, const char *data, int length)
{
    BIO_clear_retry_flags(bio);
    ssize_t sent = send(bioFd(bio), data, static_cast<size_t>(length),
                        MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && wouldBlock())
        BIO_set_retry_write(bio);
    return static_cast<int>(sent);
}

static int bioRead(BIO *bio, char *data, int length)
{
    BIO_clear_retry_flags(bio);
    ssize_t got =
        recv(bioFd(bio), data, static_cast<size_t>(length), MSG_DONTWAIT);
    if (got < 0 && wouldBlock())
        BIO_set_retry_read(bio);
    return static_cast<int>(got);
}

static long bioControl(BIO *, int command, long, void *)
{
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

struct BioMethodFree {
    void operator()(BIO_METHOD *method) const { BIO_meth_free(method); }
};

static std::unique_ptr<BIO_METHOD, BioMethodFree> makeBioMethod()
{
    std::unique_ptr<BIO_METHOD, BioMethodFree> method(BIO_meth_new(
        BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "device stream"));
    if (method) {
        BIO_meth_set_write(method.get(), bioWrite);
        BIO_meth_set_read(method.get(), bioRead);
        BIO_meth_set_ctrl(method.get(), bioControl);
    }
    return method;
}

static BIO *newBio(int fd)
{
    static const auto method = makeBioMethod();
    BIO *bio = method ? BIO_new(method.get()) : nullptr;
    if (bio) {
        BIO_set_data(bio, reinterpret_cast<void *>(static_cast<intptr_t>(fd)));
        BIO_set_init(bio, 1);
    }
    return bio;
}

// ---------------------------------------------------------------------------
// Keys

struct OpensslFree {
    void operator()(SSL_CTX *context) const { SSL_CTX_free(context); }
    void operator()(BIO *bio) const { BIO_free(bio); }
    void operator()(X509 *certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
template <typename T>
using Owned = std::unique_ptr<T, OpensslFree>;

static Owned<BIO> textBio(const std::string &text)
{
    return Owned<BIO>(
        BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

static bool useKeys(SSL_CTX *context, const PairRecord &record)
{
    Owned<BIO> certificate_text = textBio(record.certificate);
    Owned<BIO> key_text = textBio(record.private_key);
    if (!certificate_text || !key_text)
        return false;
    Owned<X509> certificate(
        PEM_read_bio_X509(certificate_text.get(), nullptr, nullptr, nullptr));
    Owned<EVP_PKEY> key(
        PEM_read_bio_PrivateKey(key_text.get(), nullptr, nullptr, nullptr));
    return certificate && key &&
           SSL_CTX_use_certificate(context, certificate.get()) == 1 &&
           SSL_CTX_use_PrivateKey(context, key.get()) == 1;
}

static Owned<SSL_CTX> newContext(const PairRecord &record, bool legacy)
{
    constexpr size_t read_buffer = 128 << 10;
    Owned<SSL_CTX> context(SSL_CTX_new(TLS_client_method()));
    if (!context)
        return nullptr;
    // Pairing certificates may be signed with SHA-1.
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    if (legacy)
        SSL_CTX_set_max_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE |
                                        SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // One system call for several records.
    SSL_CTX_set_read_ahead(context.get(), 1);
    SSL_CTX_set_default_read_buffer_len(context.get(), read_buffer);
    return useKeys(context.get(), record) ? std::move(context) : nullptr;
}

// ---------------------------------------------------------------------------

static int handshake(Stream &stream, ssl_st *ssl, Deadline deadline)
{
    for (;;) {
        ERR_clear_error();
        int result = SSL_do_handshake(ssl);
        if (result == 1)
            return 0;
        int reason = SSL_get_error(ssl, result);
        if (reason == SSL_ERROR_SSL)
            return LIBIUSB_ERROR_TLS;
        bool writing = reason == SSL_ERROR_WANT_WRITE;
        if ((!writing && reason != SSL_ERROR_WANT_READ) || expired(deadline) ||
            streamWait(stream, writing, deadline))
            return LIBIUSB_ERROR_LOST_CONNECTION;
    }
}

int tlsStart(Stream &stream, const PairRecord &record, bool legacy,
             Deadline deadline)
{
    ERR_clear_error();
    Owned<SSL_CTX> context = newContext(record, legacy);
    std::unique_ptr<ssl_st, SslFree> ssl(context ? SSL_new(context.get())
                                                 : nullptr);
    BIO *bio = ssl ? newBio(stream.fd.get()) : nullptr;
    if (!bio) {
        ERR_clear_error();
        return LIBIUSB_ERROR_TLS;
    }
    SSL_set_bio(ssl.get(), bio, bio);
    SSL_set_connect_state(ssl.get());
    int code = handshake(stream, ssl.get(), deadline);
    ERR_clear_error();
    if (code == 0)
        stream.ssl = std::move(ssl);
    return code;
}

} // namespace iusb
