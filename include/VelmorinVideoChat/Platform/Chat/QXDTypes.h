// Value types of the chat port: users, messages and the parameters of a user
// message. These mirror the chat SDK's classes that the library uses.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

/// A chat user.
class QXDUser {
  public:
    QXDUser() = default;
    QXDUser(std::string userId, std::string nickname = {}, std::string profileUrl = {})
        : userId_(std::move(userId)),
          nickname_(std::move(nickname)),
          profileUrl_(std::move(profileUrl)) {}
    const std::string& userId() const { return userId_; }
    const std::string& nickname() const { return nickname_; }
    const std::string& profileUrl() const { return profileUrl_; }

  private:
    std::string userId_;
    std::string nickname_;
    std::string profileUrl_;
};
using QXDUserPtr = std::shared_ptr<const QXDUser>;

/// Base of every message a channel carries.
class QXDBaseMessage {
  public:
    virtual ~QXDBaseMessage() = default;
    QXDBaseMessage(int64_t messageId, std::string channelUrl, int64_t createdAt = 0)
        : messageId_(messageId), channelUrl_(std::move(channelUrl)), createdAt_(createdAt) {}
    /// Signed 64-bit id assigned by the service; ids only grow. 0 for a message
    /// not yet stored.
    int64_t messageId() const { return messageId_; }
    const std::string& channelUrl() const { return channelUrl_; }
    /// Milliseconds since the Unix epoch, as the service stored it.
    int64_t createdAt() const { return createdAt_; }

  private:
    int64_t messageId_;
    std::string channelUrl_;
    int64_t createdAt_;
};
using QXDBaseMessagePtr = std::shared_ptr<const QXDBaseMessage>;

/// A user message: text, custom type and a data string (where call signalling
/// travels), and its sender.
class QXDUserMessage : public QXDBaseMessage {
  public:
    QXDUserMessage(int64_t messageId, std::string channelUrl, std::string message,
                   std::string customType, std::string data, QXDUserPtr sender,
                   int64_t createdAt = 0)
        : QXDBaseMessage(messageId, std::move(channelUrl), createdAt),
          message_(std::move(message)),
          customType_(std::move(customType)),
          data_(std::move(data)),
          sender_(std::move(sender)) {}
    const std::string& message() const { return message_; }
    const std::string& customType() const { return customType_; }
    const std::string& data() const { return data_; }
    const QXDUserPtr& sender() const { return sender_; }

  private:
    std::string message_;
    std::string customType_;
    std::string data_;
    QXDUserPtr sender_;
};
using QXDUserMessagePtr = std::shared_ptr<const QXDUserMessage>;

/// What to send as a user message.
class QXDUserMessageParams {
  public:
    /// `initWithMessage:`.
    static std::shared_ptr<QXDUserMessageParams> initWithMessage(std::string message) {
        auto params = std::make_shared<QXDUserMessageParams>();
        params->message_ = std::move(message);
        return params;
    }
    void setCustomType(std::string customType) { customType_ = std::move(customType); }
    void setData(std::string data) { data_ = std::move(data); }
    const std::string& message() const { return message_; }
    const std::string& customType() const { return customType_; }
    const std::string& data() const { return data_; }

  private:
    std::string message_;
    std::string customType_;
    std::string data_;
};
using QXDUserMessageParamsPtr = std::shared_ptr<QXDUserMessageParams>;
