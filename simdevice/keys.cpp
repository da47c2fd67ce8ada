#include "simdevice/keys.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/encoder.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/sha.h>

#include <cstdint>

#include "simdevice/openssl_handle.h"

namespace sim
{

namespace
{

using Number = OpensslHandle<BIGNUM, BN_free>;
using NumberContext = OpensslHandle<BN_CTX, BN_CTX_free>;
using Key = OpensslHandle<EVP_PKEY, EVP_PKEY_free>;
using KeyContext = OpensslHandle<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using Memory = OpensslHandle<BIO, BIO_free_all>;

constexpr size_t kPrimeBytes = 128;

// 128 bytes out of SHA-256 over the seed, a name and a counter.
Number stretch(const std::string &seed, const char *name)
{
    unsigned char bytes[kPrimeBytes];
    for (size_t i = 0; i < kPrimeBytes / SHA256_DIGEST_LENGTH; i++) {
        const std::string text = seed + "/" + name + "/" + std::to_string(i);
        SHA256(reinterpret_cast<const unsigned char *>(text.data()),
               text.size(), bytes + i * SHA256_DIGEST_LENGTH);
    }
    return Number(BN_bin2bn(bytes, sizeof bytes, nullptr));
}

// The first prime from there on that suits the exponent 65537. The two highest
// bits are set, so that the product of two such primes has its full length.
Number findPrime(const std::string &seed, const char *name, BN_CTX *context)
{
    Number prime = stretch(seed, name);
    constexpr int bits = kPrimeBytes * 8;
    BN_set_bit(prime.get(), bits - 1);
    BN_set_bit(prime.get(), bits - 2);
    BN_set_bit(prime.get(), 0);
    while (BN_mod_word(prime.get(), 65537) == 1 ||
           BN_check_prime(prime.get(), context, nullptr) != 1) {
        if (BN_add_word(prime.get(), 2) != 1) {
            return {};
        }
    }
    return prime;
}

struct KeyNumbers {
    Number n, e, d, p, q, dp, dq, inverse;
};

KeyNumbers computeNumbers(const std::string &seed, BN_CTX *context)
{
    KeyNumbers key;
    key.p = findPrime(seed, "p", context);
    key.q = findPrime(seed, "q", context);
    if (BN_cmp(key.p.get(), key.q.get()) < 0) {
        std::swap(key.p, key.q);
    }
    for (Number *number : {&key.n, &key.e, &key.d, &key.dp, &key.dq}) {
        number->reset(BN_new());
    }
    const Number p1(BN_dup(key.p.get()));
    const Number q1(BN_dup(key.q.get()));
    const Number phi(BN_new());
    BN_sub_word(p1.get(), 1);
    BN_sub_word(q1.get(), 1);
    BN_mul(phi.get(), p1.get(), q1.get(), context);
    BN_mul(key.n.get(), key.p.get(), key.q.get(), context);
    BN_set_word(key.e.get(), 65537);
    BN_mod_inverse(key.d.get(), key.e.get(), phi.get(), context);
    BN_mod(key.dp.get(), key.d.get(), p1.get(), context);
    BN_mod(key.dq.get(), key.d.get(), q1.get(), context);
    key.inverse.reset(
        BN_mod_inverse(nullptr, key.q.get(), key.p.get(), context));
    return key;
}

Key assemble(const KeyNumbers &key)
{
    const OpensslHandle<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free> builder(
        OSSL_PARAM_BLD_new());
    const std::pair<const char *, BIGNUM *> parts[] = {
        {OSSL_PKEY_PARAM_RSA_N, key.n.get()},
        {OSSL_PKEY_PARAM_RSA_E, key.e.get()},
        {OSSL_PKEY_PARAM_RSA_D, key.d.get()},
        {OSSL_PKEY_PARAM_RSA_FACTOR1, key.p.get()},
        {OSSL_PKEY_PARAM_RSA_FACTOR2, key.q.get()},
        {OSSL_PKEY_PARAM_RSA_EXPONENT1, key.dp.get()},
        {OSSL_PKEY_PARAM_RSA_EXPONENT2, key.dq.get()},
        {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, key.inverse.get()},
    };
    for (const auto &[name, number] : parts) {
        OSSL_PARAM_BLD_push_BN(builder.get(), name, number);
    }
    const OpensslHandle<OSSL_PARAM, OSSL_PARAM_free> parameters(
        OSSL_PARAM_BLD_to_param(builder.get()));
    const KeyContext context(
        EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY *result = nullptr;
    if (!context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &result, EVP_PKEY_KEYPAIR,
                          parameters.get()) != 1) {
        return {};
    }
    return Key(result);
}

std::string encode(const EVP_PKEY *key, int selection, const char *structure)
{
    const OpensslHandle<OSSL_ENCODER_CTX, OSSL_ENCODER_CTX_free> encoder(
        OSSL_ENCODER_CTX_new_for_pkey(key, selection, "PEM", structure,
                                      nullptr));
    const Memory memory(BIO_new(BIO_s_mem()));
    if (!encoder || OSSL_ENCODER_to_bio(encoder.get(), memory.get()) != 1) {
        return {};
    }
    char *text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<size_t>(length)};
}

} // namespace

std::string makeDeviceKey(const std::string &seed)
{
    const NumberContext context(BN_CTX_new());
    const Key key = assemble(computeNumbers(seed, context.get()));
    return key ? encode(key.get(), EVP_PKEY_KEYPAIR, "PrivateKeyInfo")
               : std::string();
}

std::string publicKeyPem(const std::string &privatePem)
{
    const Memory memory(BIO_new_mem_buf(privatePem.data(),
                                        static_cast<int>(privatePem.size())));
    const Key key(
        PEM_read_bio_PrivateKey(memory.get(), nullptr, nullptr, nullptr));
    return key && EVP_PKEY_is_a(key.get(), "RSA") == 1
               ? encode(key.get(), EVP_PKEY_PUBLIC_KEY, "pkcs1")
               : std::string();
}

} // namespace sim
