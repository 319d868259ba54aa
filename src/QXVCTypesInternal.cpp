#include "VelmorinVideoChat/QXVCTypesInternal.h"

#include <map>

const char* const NSErrorDomainVelmorinVideoChat = "Velmorin VideoChat Error";

namespace {

std::string fillTemplate(const std::string& tmpl, const std::optional<std::string>& detail) {
    std::string out = tmpl;
    const auto at = out.find("%@");
    if (at != std::string::npos) {
        out.replace(at, 2, detail ? *detail : std::string("(null)"));
    }
    return out;
}

}  // namespace

std::optional<QXDUserInfo> ErrorUserInfoFromErrorCode(unsigned long code,
                                                      const std::optional<std::string>& detail) {
    // The table is built per call, so concurrent callers never share it and the
    // detail baked into the two templates belongs to this call alone.
    const std::map<unsigned long, std::string> table = {
        {QXVCErrorUnknown, "Unknows error occurred."},
        {QXVCErrorVelmorinConnectionRequired, "Velmorin connection is required."},
        {QXVCErrorVelmorinRequired, "Velmorin instance is required."},
        {QXVCErrorInvalidAction, fillTemplate("Invalid action. (%@)", detail)},
        {QXVCErrorAcceptingFail, "Cannot accept call."},
        {QXVCErrorInvalidParameter, fillTemplate("Invalid parameter. (%@)", detail)},
        {QXVCErrorUnsuitableChannel, "The channel is not suitable."},
        {QXVCErrorAlreadyCameraSwitching, "Already camera is switching."},
        {QXVCErrorNotSupportedPlatform, "This platform is not supported."},
    };
    const auto it = table.find(code);
    if (it == table.end()) {
        return std::nullopt;
    }
    return QXDUserInfo{{NSLocalizedDescriptionKey, it->second}};
}

std::string NSStringFromEndType(QXVCEndType endType) {
    switch (endType) {
        case QXVCEndTypeEnd:
            return "end";
        case QXVCEndTypeCancel:
            return "cancel";
        case QXVCEndTypeDecline:
            return "decline";
        case QXVCEndTypeTimeout:
            return "timeout";
        default:
            return "unknown";
    }
}

QXDErrorPtr QXVCMakeError(unsigned long code, unsigned long infoCode,
                          const std::optional<std::string>& detail) {
    return QXDError::errorWithDomain(NSErrorDomainVelmorinVideoChat, static_cast<long>(code),
                                     ErrorUserInfoFromErrorCode(infoCode, detail));
}
