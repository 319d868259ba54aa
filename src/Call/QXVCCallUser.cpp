#include "VelmorinVideoChat/Call/QXVCCallUser.h"

#include "VelmorinVideoChat/Utils/QXVCFormat.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

std::shared_ptr<QXVCCallUser> QXVCCallUser::initWithDictionary(const nlohmann::json* dictionary) {
    auto user = std::make_shared<QXVCCallUser>();
    if (dictionary != nullptr) {
        user->userId_ = qxvc::json::getString(*dictionary, "user_id", "");
        user->nickname_ = qxvc::json::getString(*dictionary, "nickname", "");
        user->profileUrl_ = qxvc::json::getString(*dictionary, "profile_url", "");
    }
    return user;
}

std::shared_ptr<QXVCCallUser> QXVCCallUser::copy() const {
    return std::make_shared<QXVCCallUser>(*this);
}

std::string QXVCCallUser::description() const {
    const auto* self = static_cast<const void*>(this);
    const std::string superDescription = qxvc::format("<%@: %p>", "QXVCCallUser", self);
    std::string text = qxvc::format("<%@, %p", "QXVCCallUser", self);
    text += qxvc::format(", super class: %@", superDescription);
    text += qxvc::format(", user id: %@", userId_);
    text += qxvc::format(", nickname: %@", nickname_);
    text += qxvc::format(", profile url: %@", profileUrl_);
    text += qxvc::format(", audio: %d", isAudioEnabled_);
    text += qxvc::format(", video: %d", isVideoEnabled_);
    text += ">";
    return text;
}

std::ostream& operator<<(std::ostream& os, const QXVCCallUser& user) {
    return os << user.description();
}
