#include "VelmorinVideoChat/Platform/RTC/RTCCertificate.h"

#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"

namespace {
constexpr int64_t kDefaultExpiresMs = 30LL * 24 * 3600 * 1000;
}

std::shared_ptr<RTCCertificate> RTCCertificate::generateCertificateWithParams(
    const nlohmann::json& params) {
    if (!params.is_object()) {
        return nullptr;
    }
    auto name = params.find("name");
    if (name == params.end() || !name->is_string()) {
        return nullptr;
    }
    RTCKeyType keyType;
    const auto& text = name->get_ref<const std::string&>();
    if (text == "RSASSA-PKCS1-v1_5") {
        keyType = RTCKeyTypeRSA;
    } else if (text == "ECDSA") {
        keyType = RTCKeyTypeECDSA;
    } else {
        return nullptr;
    }
    int64_t expiresMs = kDefaultExpiresMs;
    auto expires = params.find("expires");
    if (expires != params.end() && !expires->is_null()) {
        if (!expires->is_number()) {
            return nullptr;
        }
        double value = expires->get<double>();
        if (!(value >= 1) || value > 9.0e15) {
            return nullptr;
        }
        expiresMs = static_cast<int64_t>(value);
    }
    auto platform = RTCPlatform::current();
    return platform ? platform->generateCertificate(keyType, expiresMs) : nullptr;
}

RTCCertificate::RTCCertificate(std::string privateKey, std::string certificate, int64_t expiresMs)
    : privateKey_(std::move(privateKey)),
      certificate_(std::move(certificate)),
      expiresMs_(expiresMs) {}
