// A recording chat client for unit tests: it implements the chat port with
// in-memory channels, records every message sent and every delegate
// registration, and can be told to fail a lookup or a send. Send and lookup
// callbacks run synchronously on the calling thread. Thread-safe.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "support/Locked.h"

class FakeChatClient;

class FakeGroupChannel : public QXDGroupChannel {
  public:
    FakeGroupChannel(std::weak_ptr<FakeChatClient> client, std::string url,
                     std::vector<QXDUser> members)
        : client_(std::move(client)), url_(std::move(url)), members_(std::move(members)) {}

    std::string channelUrl() const override { return url_; }
    bool isPublic() const override { return false; }
    bool isSuper() const override { return false; }
    long memberCount() const override { return static_cast<long>(members_.size()); }
    std::vector<QXDUser> members() const override { return members_; }
    QXDUserMessagePtr sendUserMessageWithParams(const QXDUserMessageParamsPtr& params,
                                                QXDUserMessageHandler handler) override;

  private:
    std::weak_ptr<FakeChatClient> client_;
    std::string url_;
    std::vector<QXDUser> members_;
};

class FakeChatClient : public QXDChatClient, public std::enable_shared_from_this<FakeChatClient> {
  public:
    struct Sent {
        std::string channelUrl;
        std::string message;
        std::string customType;
        std::string data;
    };

    static std::shared_ptr<FakeChatClient> create(
        std::optional<std::string> currentUserId = "alice");

    /// A private channel of two members: the current user and "bob".
    std::shared_ptr<FakeGroupChannel> addChannel(const std::string& url);

    /// Every lookup fails with `error` (nullptr: lookups work again).
    void failLookups(QXDErrorPtr error) { lockedSet(mutex_, lookupError_, std::move(error)); }
    /// Every send fails with `error` (nullptr: sends work again).
    void failSends(QXDErrorPtr error) { lockedSet(mutex_, sendError_, std::move(error)); }

    std::vector<Sent> sent() const { return lockedCopy(mutex_, sent_); }
    size_t lookupCount() const { return lockedCopy(mutex_, lookups_); }
    /// Identifiers of the channel delegates registered and still alive.
    std::vector<std::string> delegateIdentifiers() const;

    QXDUserPtr getCurrentUser() const override { return lockedCopy(mutex_, currentUser_); }
    void getGroupChannel(const std::string& channelUrl, QXDGroupChannelHandler handler) override;
    void addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                            const std::string& identifier) override;
    void removeChannelDelegate(const std::string& identifier) override {
        std::lock_guard lock(mutex_);
        delegates_.erase(identifier);
    }

    /// Called by FakeGroupChannel: records and stores the message, or fails.
    std::pair<QXDUserMessagePtr, QXDErrorPtr> store(const std::string& channelUrl,
                                                    const QXDUserMessageParams& params);

  private:
    mutable std::mutex mutex_;
    QXDUserPtr currentUser_;
    std::map<std::string, std::shared_ptr<FakeGroupChannel>> channels_;
    std::map<std::string, std::weak_ptr<QXDChannelDelegate>> delegates_;
    QXDErrorPtr lookupError_;
    QXDErrorPtr sendError_;
    std::vector<Sent> sent_;
    size_t lookups_ = 0;
    int64_t nextMessageId_ = 1000;
};
