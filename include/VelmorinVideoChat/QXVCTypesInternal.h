// Internal enumerations, the error table, and the protocol and media constants.
//
// Installed with the public headers because a few public operations return
// these types (for example the rendering type of a chat message).
#pragma once

#include <optional>
#include <string>

#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/QXVCTypes.h"

/// The level every diagnostic line of the library is logged at. Deliberately far
/// outside the public range: the library's own lines print only when the
/// application sets a log level of 1112017 or more.
enum QXVCInternalLogLevel : long {
    QXVCInternalLogLevelDebug = 1112017,
};

/// How an application should treat a chat message when it shows a conversation.
enum QXVCRenderingMessageType : long {
    QXVCRenderingMessageTypeChat = 0,
    QXVCRenderingMessageTypeStart = 1,
    QXVCRenderingMessageTypeEnd = 2,
    QXVCRenderingMessageTypeNotRender = 3,
};

/// The user-information map of an error `code`: one localized-description entry.
/// For QXVCErrorInvalidAction and QXVCErrorInvalidParameter the message template's
/// "%@" is replaced by `detail` ("(null)" when there is none); other codes ignore
/// `detail`. A code without an entry (900600, or any other number) gives nullopt.
/// Every call returns a fresh map; nothing is shared between callers.
std::optional<QXDUserInfo> ErrorUserInfoFromErrorCode(unsigned long code,
                                                      const std::optional<std::string>& detail);

/// The wire word of an end type: "end", "cancel", "decline", "timeout"; "unknown"
/// for every other value, QXVCEndTypeNone and QXVCEndTypeUnknown included.
std::string NSStringFromEndType(QXVCEndType endType);

/// Builds a library error: domain NSErrorDomainVelmorinVideoChat, `code`, and the
/// user information of `infoCode` (normally the same code; a few errors pair two
/// codes on purpose).
QXDErrorPtr QXVCMakeError(unsigned long code, unsigned long infoCode,
                          const std::optional<std::string>& detail = std::nullopt);

// Signalling commands, under the writer's and the reader's names.
inline constexpr const char* kQXVCStartCmd = "STCA";
inline constexpr const char* kQXVCEndCmd = "ENCA";
inline constexpr const char* kQXVCSignalCmd = "SGNL";
inline constexpr const char* kQXVCCommandStartCall = "STCA";
inline constexpr const char* kQXVCCommandEndCall = "ENCA";
inline constexpr const char* kQXVCCommandSignalCall = "SGNL";

/// Sent under the key "videochat_protocol_ver".
inline constexpr long kQXVCProtocolVersion = 1;

// Keys of the candidate and session-description JSON helpers.
inline constexpr const char* kQXVCSessionDescriptionTypeKey = "type";
inline constexpr const char* kQXVCSessionDescriptionSdpKey = "sdp";
inline constexpr const char* kRTCICECandidateTypeKey = "type";
inline constexpr const char* kRTCICECandidateTypeValue = "candidate";
inline constexpr const char* kRTCICECandidateMidKey = "id";
inline constexpr const char* kRTCICECandidateMLineIndexKey = "label";
inline constexpr const char* kRTCICECandidateSdpKey = "candidate";
inline constexpr const char* kRTCICECandidatesTypeKey = "candidates";

// Media stream and track identifiers.
inline constexpr const char* kQXVCMediaStreamId = "ARDAMS";
inline constexpr const char* kQXVCAudioTrackId = "ARDAMSa0";
inline constexpr const char* kQXVCVideoTrackId = "ARDAMSv0";
inline constexpr const char* kQXVCVideoTrackKind = "video";

// Chat message text and custom type of every signalling message.
inline constexpr const char* kQXVCMessageText = "QX_VIDEOCHAT";
inline constexpr const char* kQXVCCustomTypePrefix = "QX_VIDEOCHAT";
