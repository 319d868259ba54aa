// The objects of the wire protocol (ChatWireProtocol.h) to and from JSON, for
// the server and its clients alike. Reading is lenient (absent keys give empty
// values) and never throws.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "VelmorinService/ChatService.h"

namespace velmorin::wire {

nlohmann::json userToJson(const QXDUser& user);
QXDUser userFromJson(const nlohmann::json& object);

nlohmann::json channelToJson(const ChannelInfo& channel);
/// nullopt unless `object` is an object with a non-empty channel URL.
std::optional<ChannelInfo> channelFromJson(const nlohmann::json& object);

nlohmann::json messageToJson(const QXDUserMessage& message);
/// nullptr unless `object` is an object with a message id and a channel URL.
QXDUserMessagePtr messageFromJson(const nlohmann::json& object);

/// {"code","domain","message"}: domain and code verbatim, the localized
/// description as message.
nlohmann::json errorToJson(const QXDError& error);
/// The error an error object describes (a generic one for a bad object).
QXDErrorPtr errorFromJson(const nlohmann::json& object);

/// Compact JSON text; invalid UTF-8 in strings is replaced, never thrown.
std::string dump(const nlohmann::json& value);

}  // namespace velmorin::wire
