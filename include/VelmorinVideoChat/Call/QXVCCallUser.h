// One participant of a call as the chat service describes it.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

class QXVCCallUser {
  public:
    QXVCCallUser() = default;
    QXVCCallUser(const QXVCCallUser&) = default;
    QXVCCallUser& operator=(const QXVCCallUser&) = default;

    /// `initWithDictionary:`: reads "user_id", "nickname" and "profile_url" (each
    /// "" when absent or null). The two media flags are not read from the user
    /// object: they start false. A nullptr dictionary gives a user with every
    /// field at its default.
    static std::shared_ptr<QXVCCallUser> initWithDictionary(const nlohmann::json* dictionary);

    /// `copyWithZone:`: a new user with the same fields.
    std::shared_ptr<QXVCCallUser> copy() const;

    const std::string& userId() const { return userId_; }
    void setUserId(std::string userId) { userId_ = std::move(userId); }
    const std::string& nickname() const { return nickname_; }
    void setNickname(std::string nickname) { nickname_ = std::move(nickname); }
    const std::string& profileUrl() const { return profileUrl_; }
    void setProfileUrl(std::string profileUrl) { profileUrl_ = std::move(profileUrl); }
    bool isAudioEnabled() const { return isAudioEnabled_; }
    void setIsAudioEnabled(bool enabled) { isAudioEnabled_ = enabled; }
    bool isVideoEnabled() const { return isVideoEnabled_; }
    void setIsVideoEnabled(bool enabled) { isVideoEnabled_ = enabled; }

    /// "<QXVCCallUser, 0x..., super class: <QXVCCallUser: 0x...>, user id: ...,
    /// nickname: ..., profile url: ..., audio: 0|1, video: 0|1>".
    std::string description() const;

  private:
    std::string userId_;
    std::string nickname_;
    std::string profileUrl_;
    bool isAudioEnabled_ = false;
    bool isVideoEnabled_ = false;
};

using QXVCCallUserPtr = std::shared_ptr<QXVCCallUser>;

std::ostream& operator<<(std::ostream& os, const QXVCCallUser& user);
