#include "RTCGstCertificates.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

struct RTCGstCertificates::Key {
    EVP_PKEY* pkey = nullptr;
    ~Key() { EVP_PKEY_free(pkey); }
};

namespace {

std::string bioToString(BIO* bio) {
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    return size > 0 ? std::string(data, static_cast<size_t>(size)) : std::string();
}

const EVP_MD* digestFor(const std::string& algorithm) {
    if (algorithm == "sha-256")
        return EVP_sha256();
    if (algorithm == "sha-1")
        return EVP_sha1();
    if (algorithm == "sha-384")
        return EVP_sha384();
    if (algorithm == "sha-512")
        return EVP_sha512();
    return nullptr;
}

}  // namespace

RTCGstCertificates::RTCGstCertificates(size_t readyKeys, std::function<void()> beforeRefill)
    : readyKeys_(readyKeys), beforeRefill_(std::move(beforeRefill)) {
    if (readyKeys_ > 0) {
        thread_ = std::thread([this] { run(); });
    }
}

RTCGstCertificates::~RTCGstCertificates() {
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void RTCGstCertificates::run() {
    std::unique_lock lock(mutex_);
    while (!stop_) {
        if (pool_.size() >= readyKeys_) {
            cv_.wait(lock);
            continue;
        }
        making_ = true;
        lock.unlock();
        auto key = makeKey(RTCKeyTypeRSA, [this] {
            std::lock_guard stopLock(mutex_);
            return !stop_;
        });
        lock.lock();
        making_ = false;
        failing_ = !key;
        cv_.notify_all();
        if (!key) {
            // OpenSSL failed (or we stop): requests make their own keys
            // meanwhile, and the next try here comes a second later.
            cv_.wait_for(lock, std::chrono::seconds(1), [this] { return stop_; });
            continue;
        }
        pool_.push_back(std::move(key));
        cv_.notify_all();
        if (beforeRefill_) {
            // Once, with the first key out of the way of the first call.
            auto wait = std::exchange(beforeRefill_, nullptr);
            lock.unlock();
            wait();
            lock.lock();
        }
    }
}

size_t RTCGstCertificates::readyCount() const {
    std::lock_guard lock(mutex_);
    return pool_.size();
}

bool RTCGstCertificates::waitUntilFull(double seconds) const {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, std::chrono::duration<double>(std::max(seconds, 0.0)),
                        [&] { return pool_.size() >= readyKeys_; });
}

std::shared_ptr<RTCGstCertificates::Key> RTCGstCertificates::makeKey(
    RTCKeyType keyType, const std::function<bool()>& keepGoing) {
    auto key = std::make_shared<Key>();
    if (keyType == RTCKeyTypeECDSA) {
        key->pkey = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
        return key->pkey ? key : nullptr;
    }
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    if (ctx && EVP_PKEY_keygen_init(ctx) > 0 && EVP_PKEY_CTX_set_rsa_keygen_bits(ctx, 2048) > 0) {
        if (keepGoing) {
            // Called for every prime candidate (well under a millisecond
            // apart); 0 abandons the key.
            EVP_PKEY_CTX_set_app_data(ctx, const_cast<std::function<bool()>*>(&keepGoing));
            EVP_PKEY_CTX_set_cb(ctx, [](EVP_PKEY_CTX* c) {
                return (*static_cast<std::function<bool()>*>(EVP_PKEY_CTX_get_app_data(c)))() ? 1
                                                                                              : 0;
            });
        }
        if (EVP_PKEY_generate(ctx, &key->pkey) <= 0) {
            key->pkey = nullptr;
        }
    }
    EVP_PKEY_CTX_free(ctx);
    return key->pkey ? key : nullptr;
}

std::shared_ptr<RTCGstCertificates::Key> RTCGstCertificates::takeLocked() {
    if (pool_.empty()) {
        return nullptr;
    }
    auto key = std::move(pool_.front());
    pool_.pop_front();
    return key;
}

RTCCertificatePtr RTCGstCertificates::generate(RTCKeyType keyType, int64_t expiresMs) {
    std::shared_ptr<Key> key;
    if (keyType == RTCKeyTypeRSA) {
        // The key being made is nearer than a new one, and a second key made
        // beside it would slow both down.
        std::unique_lock lock(mutex_);
        cv_.wait(lock, [&] { return !pool_.empty() || !making_ || failing_ || stop_; });
        key = takeLocked();
    }
    cv_.notify_all();
    if (!key) {
        key = makeKey(keyType);
    }
    return key ? certify(*key, expiresMs) : nullptr;
}

// RSA_METHOD is deprecated, and the only hook into keys made through RSA_new
// and RSA_generate_key_ex, as GStreamer makes its own.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
namespace {
thread_local bool threePrimes = false;  ///< in withThreePrimeRsaKeys' work
}  // namespace

void RTCGstCertificates::withThreePrimeRsaKeys(const std::function<void()>& work) {
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    // RSA objects made while it is the default keep pointing at it: made
    // once, never freed.
    static RSA_METHOD* method = [] {
        RSA_METHOD* m = RSA_meth_dup(RSA_PKCS1_OpenSSL());
        if (m) {
            RSA_meth_set1_name(m, "RSA, keys of three primes");
            RSA_meth_set_multi_prime_keygen(
                m, [](RSA* rsa, int bits, int primes, BIGNUM* e, BN_GENCB* cb) {
                    // The key itself carries OpenSSL's own method afterwards.
                    if (RSA_set_method(rsa, RSA_PKCS1_OpenSSL()) != 1) {
                        return 0;
                    }
                    return RSA_generate_multi_prime_key(
                        rsa, bits, threePrimes && bits == 2048 ? 3 : primes, e, cb);
                });
        }
        return m;
    }();
    const RSA_METHOD* previous = RSA_get_default_method();
    if (method) {
        RSA_set_default_method(method);
    }
    threePrimes = true;
    struct Restore {
        const RSA_METHOD* previous;
        ~Restore() {
            threePrimes = false;
            RSA_set_default_method(previous);
        }
    } restore{previous};
    work();
}
#pragma GCC diagnostic pop

RTCCertificatePtr RTCGstCertificates::certify(const Key& key, int64_t expiresMs) {
    X509* x509 = X509_new();
    if (!x509) {
        return nullptr;
    }
    X509_set_version(x509, 2);
    unsigned char serial[8];
    RAND_bytes(serial, sizeof serial);
    serial[0] &= 0x7f;
    BIGNUM* bn = BN_bin2bn(serial, sizeof serial, nullptr);
    BN_to_ASN1_INTEGER(bn, X509_get_serialNumber(x509));
    BN_free(bn);
    // Valid from a day ago (clock skew between peers) for the lifetime asked for.
    X509_gmtime_adj(X509_getm_notBefore(x509), -24L * 3600);
    long seconds = static_cast<long>(std::min<int64_t>(expiresMs / 1000, 10LL * 365 * 24 * 3600));
    X509_gmtime_adj(X509_getm_notAfter(x509), std::max(seconds, 1L));
    X509_NAME* name = X509_get_subject_name(x509);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("WebRTC"), -1, -1, 0);
    X509_set_issuer_name(x509, name);
    X509_set_pubkey(x509, key.pkey);
    RTCCertificatePtr result;
    if (X509_sign(x509, key.pkey, EVP_sha256()) > 0) {
        BIO* certBio = BIO_new(BIO_s_mem());
        BIO* keyBio = BIO_new(BIO_s_mem());
        if (PEM_write_bio_X509(certBio, x509) &&
            PEM_write_bio_PrivateKey(keyBio, key.pkey, nullptr, nullptr, 0, nullptr, nullptr)) {
            result = std::make_shared<RTCCertificate>(bioToString(keyBio), bioToString(certBio),
                                                      expiresMs);
        }
        BIO_free(certBio);
        BIO_free(keyBio);
    }
    X509_free(x509);
    return result;
}

std::optional<std::string> RTCGstCertificates::fingerprintOfPem(const std::string& pem,
                                                                const std::string& algorithm) {
    const EVP_MD* md = digestFor(algorithm);
    if (!md || pem.empty()) {
        return std::nullopt;
    }
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    X509* x509 = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    if (!x509) {
        return std::nullopt;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    bool ok = X509_digest(x509, md, digest, &length) == 1;
    X509_free(x509);
    if (!ok) {
        return std::nullopt;
    }
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned int i = 0; i < length; ++i) {
        if (i)
            out += ':';
        out += hex[digest[i] >> 4];
        out += hex[digest[i] & 15];
    }
    return out;
}
