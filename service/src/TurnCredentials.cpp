#include "VelmorinService/TurnCredentials.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <array>
#include <random>
#include <vector>

namespace velmorin {

std::string turnPassword(const std::string& sharedSecret, const std::string& username) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int digestLength = 0;
    const auto* key = sharedSecret.empty()
                          ? reinterpret_cast<const unsigned char*>("")
                          : reinterpret_cast<const unsigned char*>(sharedSecret.data());
    if (HMAC(EVP_sha1(), key, static_cast<int>(sharedSecret.size()),
             reinterpret_cast<const unsigned char*>(username.data()), username.size(),
             digest.data(), &digestLength) == nullptr) {
        return {};
    }
    // EVP_EncodeBlock writes 4 characters per 3 bytes, padded, plus a NUL.
    std::vector<unsigned char> encoded(4 * ((digestLength + 2) / 3) + 1);
    int length = EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(digestLength));
    if (length < 0) {
        return {};
    }
    return std::string(reinterpret_cast<const char*>(encoded.data()), static_cast<size_t>(length));
}

TurnCredentials makeTurnCredentials(const std::string& sharedSecret, const std::string& userId,
                                    int64_t expiryUnixSeconds) {
    TurnCredentials credentials;
    credentials.username = std::to_string(expiryUnixSeconds) + ":" + userId;
    credentials.password = turnPassword(sharedSecret, credentials.username);
    return credentials;
}

std::string makeUuidV4() {
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        // The secure source failed: fall back to the standard library's device.
        std::random_device device;
        for (auto& byte : bytes) {
            byte = static_cast<unsigned char>(device() & 0xFFu);
        }
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0Fu) | 0x40u);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3Fu) | 0x80u);  // RFC 4122 variant
    std::string text;
    text.reserve(36);
    static const char* const hex = "0123456789abcdef";
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text.push_back('-');
        }
        text.push_back(hex[bytes[i] >> 4]);
        text.push_back(hex[bytes[i] & 0x0Fu]);
    }
    return text;
}

}  // namespace velmorin
