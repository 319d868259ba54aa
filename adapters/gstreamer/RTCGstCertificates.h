// DTLS certificates for peer connections, made with OpenSSL ahead of need.
//
// RSA-2048 key generation takes hundreds of milliseconds, so a background
// thread keeps a few fresh keys ready; each certificate request takes one key
// and signs a new self-signed certificate for it with the lifetime asked for.
// A key is handed out once and never again.
//
// A request that finds the pool empty while the background thread makes a key
// waits for that key; it makes one itself only when none is under way, or
// when the background thread's last key failed.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "VelmorinVideoChat/Platform/RTC/RTCCertificate.h"

class RTCGstCertificates {
  public:
    /// Keeps `readyKeys` RSA keys ready (0 disables the background thread).
    /// `beforeRefill`, when set, runs on the background thread once the first
    /// key is ready and before it makes more: the engine waits there for its
    /// own set-up, which a first call needs as much as a key.
    explicit RTCGstCertificates(size_t readyKeys = 2, std::function<void()> beforeRefill = {});
    ~RTCGstCertificates();
    RTCGstCertificates(const RTCGstCertificates&) = delete;
    RTCGstCertificates& operator=(const RTCGstCertificates&) = delete;

    /// A new certificate; nullptr if OpenSSL fails.
    RTCCertificatePtr generate(RTCKeyType keyType, int64_t expiresMs);
    /// Keys waiting in the pool.
    size_t readyCount() const;
    /// Waits at most `seconds` until the pool holds every key it keeps ready.
    bool waitUntilFull(double seconds) const;

    /// Runs `work` with every RSA-2048 key that it generates through OpenSSL's
    /// older RSA interface (on this thread) made with three primes (683 bits
    /// each, as PKCS #1 v2.2 allows and OpenSSL caps for 2048 bits): the same
    /// modulus size and an ordinary public key, made in about 50 ms instead
    /// of 130 (at worst 80 ms instead of 330). For GStreamer's DTLS elements,
    /// which make a default certificate of their own the first time one is
    /// created: no connection of ours uses it, since each gets its own, but
    /// the first call waits for it. The pool's own keys keep two primes:
    /// with three, a process held about 2 MiB more after 40 calls, for
    /// reasons not found.
    static void withThreePrimeRsaKeys(const std::function<void()>& work);

    /// SHA-256 of the DER certificate in `pem`, as "AB:CD:..."; nullopt if `pem`
    /// holds no certificate. `algorithm` may also be "sha-1", "sha-384", "sha-512".
    static std::optional<std::string> fingerprintOfPem(const std::string& pem,
                                                       const std::string& algorithm = "sha-256");

  private:
    struct Key;
    void run();
    /// A new key; null if OpenSSL fails or `keepGoing` (asked often while
    /// the key is made) returns false.
    static std::shared_ptr<Key> makeKey(RTCKeyType keyType,
                                        const std::function<bool()>& keepGoing = {});
    /// The oldest pooled key, or null (`mutex_` held).
    std::shared_ptr<Key> takeLocked();
    static RTCCertificatePtr certify(const Key& key, int64_t expiresMs);

    const size_t readyKeys_;
    std::function<void()> beforeRefill_;
    mutable std::mutex mutex_;
    mutable std::condition_variable cv_;
    std::deque<std::shared_ptr<Key>> pool_;
    bool making_ = false;   ///< the background thread is making a key
    bool failing_ = false;  ///< the background thread's last key failed
    bool stop_ = false;
    std::thread thread_;
};
