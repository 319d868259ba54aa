#include "VelmorinVideoChat/Platform/Chat/QXDError.h"

#include <sstream>

const char* const NSLocalizedDescriptionKey = "NSLocalizedDescription";

QXDError::QXDError(std::string domain, long code, std::optional<QXDUserInfo> userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

QXDErrorPtr QXDError::errorWithDomain(std::string domain, long code,
                                      std::optional<QXDUserInfo> userInfo) {
    return std::make_shared<const QXDError>(std::move(domain), code, std::move(userInfo));
}

QXDErrorPtr QXDError::errorWithNSError(const QXDErrorPtr& error) {
    if (!error) {
        return nullptr;
    }
    return std::make_shared<const QXDError>(error->domain(), error->code(), error->userInfo());
}

std::string QXDError::localizedDescription() const {
    if (userInfo_) {
        auto it = userInfo_->find(NSLocalizedDescriptionKey);
        if (it != userInfo_->end()) {
            return it->second;
        }
    }
    std::ostringstream os;
    os << "The operation couldn't be completed. (" << domain_ << " error " << code_ << ".)";
    return os.str();
}

std::string QXDError::description() const {
    std::ostringstream os;
    os << "Error Domain=" << domain_ << " Code=" << code_;
    if (userInfo_) {
        os << " UserInfo={";
        bool first = true;
        for (const auto& [key, value] : *userInfo_) {
            os << (first ? "" : ", ") << key << "=" << value;
            first = false;
        }
        os << "}";
    }
    return os.str();
}

std::ostream& operator<<(std::ostream& os, const QXDError& error) {
    return os << error.description();
}
