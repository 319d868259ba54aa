// Time-limited TURN credentials in the REST form that a TURN server started
// with a shared secret (coturn: --use-auth-secret --static-auth-secret=...)
// checks on its own, without a user database:
//   username = "<expiry as Unix seconds>:<user id>"
//   password = base64(HMAC-SHA1(shared secret, username))
// The server refuses the pair once the expiry lies in the past.
#pragma once

#include <cstdint>
#include <string>

namespace velmorin {

struct TurnCredentials {
    std::string username;
    std::string password;
};

/// The password of `username` under `sharedSecret`: base64 (standard alphabet,
/// padded, no line breaks) of the HMAC-SHA1 digest.
std::string turnPassword(const std::string& sharedSecret, const std::string& username);

/// Credentials for `userId` that expire at `expiryUnixSeconds`.
TurnCredentials makeTurnCredentials(const std::string& sharedSecret, const std::string& userId,
                                    int64_t expiryUnixSeconds);

/// A random (version 4) UUID in its 36-character lowercase text form, from the
/// operating system's secure random source.
std::string makeUuidV4();

}  // namespace velmorin
