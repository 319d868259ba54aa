// The error value of the chat SDK and of the whole library: a domain, an integer
// code and a user-information map holding (at least) a localized description.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

/// Key of the human-readable message in an error's user information.
extern const char* const NSLocalizedDescriptionKey;  // "NSLocalizedDescription"

using QXDUserInfo = std::map<std::string, std::string>;

class QXDError;
/// Errors travel as shared immutable values; nullptr means "no error".
using QXDErrorPtr = std::shared_ptr<const QXDError>;

class QXDError {
  public:
    QXDError(std::string domain, long code, std::optional<QXDUserInfo> userInfo);

    /// `errorWithDomain:code:userInfo:`.
    static QXDErrorPtr errorWithDomain(std::string domain, long code,
                                       std::optional<QXDUserInfo> userInfo);
    /// `errorWithNSError:`: wraps another error (a system error, or one of ours)
    /// into the chat SDK's error type, keeping domain, code and user information.
    static QXDErrorPtr errorWithNSError(const QXDErrorPtr& error);

    const std::string& domain() const { return domain_; }
    long code() const { return code_; }
    /// nullopt when the error was made without user information.
    const std::optional<QXDUserInfo>& userInfo() const { return userInfo_; }
    /// The localized description, or a generic text naming domain and code when
    /// the user information has none.
    std::string localizedDescription() const;
    std::string description() const;

  private:
    std::string domain_;
    long code_;
    std::optional<QXDUserInfo> userInfo_;
};

std::ostream& operator<<(std::ostream& os, const QXDError& error);
