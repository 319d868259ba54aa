// A chat client for one logged-in user, talking to a velmorin::ChatService in
// the same process. It implements the library's chat port (QXDChatClient), so
// an application's tests — and the library's own — run whole call flows with
// the service's real behaviour and no network:
//
//   auto service = velmorin::ChatService::create();
//   service->upsertUser(QXDUser("alice", "Alice"));
//   ...
//   auto alice = QXDInProcessChatClient::create(service, "alice");
//   QXDMain::setChatClient(alice);
//
// Connection: a connected client receives the channel events of its user; a
// disconnected one does not (the service keeps push payloads for the user
// instead, see takePushPayloads()) and its lookups and sends fail with
// QXDErrorConnectionRequired. getCurrentUser() is the logged-in user whether
// connected or not.
//
// Threads: channel events reach the channel delegates on the client's event
// queue (its own serial thread unless one is given), one event at a time, in
// the order the service delivered them (unless a fault below says otherwise).
// Completions of lookups and sends are posted to the callback queue (its own
// serial thread unless one is given), never run inline in the caller. Tests
// may pass QXVCManualQueue for both and drive them with runUntilIdle() and
// advance(). Delegates are held weakly: a destroyed delegate is skipped.
// Every method is thread-safe.
//
// Fault injection, for tests: failing channel lookups and sends with a given
// error, and delayed, duplicated, held back and reordered deliveries.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinService/ChatService.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

class QXDInProcessChatClient : public QXDChatClient {
  public:
    struct Options {
        /// Where channel events run; nullptr: a serial queue of the client's own.
        QXVCDispatchQueuePtr eventQueue;
        /// Where lookup and send completions run; nullptr: a serial queue of the
        /// client's own.
        QXVCDispatchQueuePtr callbackQueue;
        /// Connect at creation.
        bool connect = true;
    };

    /// A client logged in as `userId`. nullptr when the service is null or does
    /// not know the user.
    static std::shared_ptr<QXDInProcessChatClient> create(velmorin::ChatServicePtr service,
                                                          const std::string& userId,
                                                          Options options);
    static std::shared_ptr<QXDInProcessChatClient> create(velmorin::ChatServicePtr service,
                                                          const std::string& userId);
    ~QXDInProcessChatClient() override;
    QXDInProcessChatClient(const QXDInProcessChatClient&) = delete;
    QXDInProcessChatClient& operator=(const QXDInProcessChatClient&) = delete;

    // QXDChatClient -----------------------------------------------------------
    QXDUserPtr getCurrentUser() const override;
    /// Completes on the callback queue with a channel snapshot (members, flags,
    /// name as they stand now) through which messages are sent, or an error:
    /// QXDErrorChannelNotFound, QXDErrorNotAMember, QXDErrorConnectionRequired,
    /// or an injected one.
    void getGroupChannel(const std::string& channelUrl, QXDGroupChannelHandler handler) override;
    void addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                            const std::string& identifier) override;
    void removeChannelDelegate(const std::string& identifier) override;

    // Connection --------------------------------------------------------------
    void connect();
    void disconnect();
    bool isConnected() const;
    /// The push payloads the service kept for this user while it was not
    /// connected, oldest first; clears them.
    std::vector<nlohmann::json> takePushPayloads();

    const velmorin::ChatServicePtr& service() const;
    const QXVCDispatchQueuePtr& eventQueue() const;
    const QXVCDispatchQueuePtr& callbackQueue() const;

    /// Sends a user message in `channelUrl` (what a channel from
    /// getGroupChannel does). Returns the pending message (id 0) at once; the
    /// handler gets the stored message or the error on the callback queue.
    QXDUserMessagePtr sendUserMessage(const std::string& channelUrl,
                                      const QXDUserMessageParamsPtr& params,
                                      QXDUserMessageHandler handler);

    // Fault injection -----------------------------------------------------------
    /// The next `count` channel lookups fail with `error` (nullptr: a
    /// QXDErrorChannelNotFound error).
    void failChannelLookups(QXDErrorPtr error, int count = 1);
    /// The next `count` sends fail with `error` (nullptr: a
    /// QXDErrorRequestFailed error) without reaching the service.
    void failSends(QXDErrorPtr error, int count = 1);
    /// Every later delivery reaches the delegates `seconds` late, on the event
    /// queue's clock (virtual for a QXVCManualQueue). 0 turns it off.
    void setDeliveryDelay(double seconds);
    /// Each of the next `count` deliveries reaches the delegates twice.
    void duplicateDeliveries(int count = 1);
    /// Holds back every later delivery until releaseHeldDeliveries().
    void holdDeliveries();
    /// Stops holding and delivers what was held: last first when `reversed`,
    /// else in arrival order.
    void releaseHeldDeliveries(bool reversed = true);
    size_t heldDeliveryCount() const;

    struct State;

  private:
    explicit QXDInProcessChatClient(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};
using QXDInProcessChatClientPtr = std::shared_ptr<QXDInProcessChatClient>;
