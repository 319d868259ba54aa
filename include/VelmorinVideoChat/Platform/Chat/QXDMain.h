// The chat SDK's entry point, and the interface through which an application
// plugs its chat client into the library.
#pragma once

#include <memory>
#include <string>

#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"

/// Domain of the errors the chat port itself raises (no client, unknown
/// channel, not a member, ...). Codes below are the port's own.
extern const char* const QXDErrorDomain;  // "QXDErrorDomain"
enum QXDErrorCode : long {
    QXDErrorConnectionRequired = 800101,  // no chat client installed, or not connected
    QXDErrorChannelNotFound = 400201,
    QXDErrorNotAMember = 400108,
    QXDErrorRequestFailed = 800220,
    QXDErrorInvalidParameter = 400100,  // a malformed request (empty id, duplicate URL, ...)
    QXDErrorUserNotFound = 400301,
};

/// What an application implements (or takes from adapters/chat) to connect the
/// library to the chat service.
class QXDChatClient {
  public:
    virtual ~QXDChatClient() = default;
    /// The logged-in user, or nullptr when there is none.
    virtual QXDUserPtr getCurrentUser() const = 0;
    /// Looks up a group channel by URL; calls back once with (channel, error).
    virtual void getGroupChannel(const std::string& channelUrl, QXDGroupChannelHandler handler) = 0;
    /// Registers a delegate under `identifier` (replacing one with the same
    /// identifier). The client holds it weakly and delivers events to it on one
    /// thread, one at a time.
    virtual void addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                                    const std::string& identifier) = 0;
    virtual void removeChannelDelegate(const std::string& identifier) = 0;
};
using QXDChatClientPtr = std::shared_ptr<QXDChatClient>;

class QXDMain {
  public:
    /// Installs the chat client the library talks through (nullptr uninstalls).
    /// Delegates registered through the port are carried over to the new client
    /// and removed from the client it replaces, which stops delivering to them.
    static void setChatClient(QXDChatClientPtr client);
    static QXDChatClientPtr chatClient();

    /// The current user of the installed client; nullptr without a client.
    static QXDUserPtr getCurrentUser();
    /// `addChannelDelegate:identifier:`. Kept by the port, so it also reaches a
    /// client installed later. Held weakly.
    static void addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                                   const std::string& identifier);
    static void removeChannelDelegate(const std::string& identifier);
};
