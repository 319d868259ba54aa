// Reads the signalling carried by chat messages and push payloads.
//
// A signalling string is a four-character command ("STCA", "ENCA", "SGNL")
// followed directly by a JSON object. Characters are counted as UTF-8 code
// points (a byte that starts no valid sequence counts as one character), so the
// command is the first four characters and the JSON begins with the fifth.
//
// The two entry points treat a body that is not a JSON object differently, on
// purpose: a chat message still yields a message of its command with every field
// at its default (so its id is recorded as handled), a push payload yields nil.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"

class QXVCMessageParser {
  public:
    /// parseMessageData of the message's data and message id; nil for nullptr.
    static std::shared_ptr<QXVCCallMessage> parseUserMessage(const QXDUserMessagePtr& message);

    /// nil when `data` has fewer than 5 characters or its command is none of the
    /// three. "STCA" gives a QXVCStartCallMessage, "ENCA" a QXVCEndCallMessage,
    /// "SGNL" by "type": "candidate" a QXVCCandidateMessage, "audio" or "video" a
    /// QXVCMediaStreamUpdateMessage, anything else (no type included) a
    /// QXVCSignalMessage. A body that is not a JSON object is read as no
    /// dictionary: the message gets every default and a null payload.
    static std::shared_ptr<QXVCCallMessage> parseMessageData(const std::string& data,
                                                             int64_t messageId);

    /// Reads the "velmorin" section of a push payload: its "message_id" (present,
    /// not null, a number or numeric text; an array or object gives nil) and its
    /// "data" (at least 5 characters). Unlike parseMessageData, a body that is not
    /// a JSON object gives nil. The dispatch on the command is the same.
    static std::shared_ptr<QXVCCallMessage> parsePushNotification(const nlohmann::json& payload);
};
