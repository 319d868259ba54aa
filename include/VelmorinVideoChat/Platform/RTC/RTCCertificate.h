// The DTLS certificate of a peer connection: a private key and a self-signed
// certificate, both PEM.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

class RTCCertificate final {
  public:
    /// `generateCertificateWithParams:`. `params` holds "name" ("RSASSA-PKCS1-v1_5"
    /// for RSA-2048, or "ECDSA" for P-256) and optionally "expires", the lifetime in
    /// milliseconds as WebRTC's generateCertificate defines it (default 30 days).
    /// The installed RTCPlatform makes the key; every call returns a new key, never
    /// one handed out before. Returns nullptr for an unknown "name", a non-numeric
    /// or non-positive "expires", or when no platform is installed.
    static std::shared_ptr<RTCCertificate> generateCertificateWithParams(
        const nlohmann::json& params);

    RTCCertificate(std::string privateKey, std::string certificate, int64_t expiresMs);

    /// PEM of the private key.
    const std::string& privateKey() const { return privateKey_; }
    /// PEM of the certificate.
    const std::string& certificate() const { return certificate_; }
    /// The lifetime asked for, in milliseconds.
    int64_t expires() const { return expiresMs_; }

  private:
    std::string privateKey_;
    std::string certificate_;
    int64_t expiresMs_;
};

using RTCCertificatePtr = std::shared_ptr<RTCCertificate>;

/// Key types a platform can generate.
enum RTCKeyType : long {
    RTCKeyTypeRSA = 0,
    RTCKeyTypeECDSA = 1,
};
