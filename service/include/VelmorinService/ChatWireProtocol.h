// The wire protocol between velmorin-chat-server and its clients
// (QXDWebSocketChatClient), and the server's database schema.
//
// Transport: one WebSocket connection per client (path "/"), JSON objects in
// text frames, UTF-8. A frame larger than kMaxRequestFrameBytes (256 KiB) is
// answered with an error "frame_too_large" and otherwise ignored; the
// connection carries on. Frames beyond kHardFrameLimitBytes close the
// connection (WebSocket close code 1009). Binary frames get "binary_frame".
// JSON that nests deeper than qxvc::json::kMaxDepth (64) levels, in a frame or
// in the body of a sent "STCA"/"ENCA", is answered with "bad_request".
//
// Requests (client to server) carry "op" and a request id "id" (a JSON number
// or string, echoed verbatim in the reply):
//   {"op":"login","id":1,"user_id":"alice","token":"alice-token"}
//   {"op":"get_channel","id":2,"channel_url":"..."}
//   {"op":"send","id":3,"channel_url":"...","message":"...","custom_type":"...","data":"..."}
//       ("message", "custom_type" and "data" may be left out: empty text)
//   {"op":"fetch","id":4,"channel_url":"...","after_message_id":17,"limit":200}
//       ("limit" optional, at most kMaxFetchLimit, which is also the default)
//   {"op":"take_push_payloads","id":5}
// Nothing but "login" is accepted before a successful login, and "login" only
// once per connection. The reply to a wrong login may be held back, and the
// connection's next frames wait behind it (VelmorinService/LoginBackoff.h).
//
// Replies (server to client), exactly one per request:
//   {"type":"reply","id":<id>,"ok":true,"result":{...}}
//   {"type":"reply","id":<id or null>,"ok":false,
//    "error":{"code":<int>,"domain":"...","message":"..."}}
// Results:
//   login:              {"user":<user>,"store_id":"...",
//                        "channels":[{"channel_url","last_message_id"}...],
//                        "push_payloads":[<payload>...]}  (payloads oldest first, handed
//                        over once: the server forgets them)
//                       "store_id" names the message history: it stays the same
//                       across restarts on one database file. When it changes
//                       (a server in memory restarted), message ids started over
//                       and a client forgets the ids it saw.
//   get_channel:        {"channel":<channel>}
//   send:               {"message":<message>}  (as stored: id, rewritten signalling)
//   fetch:              {"channel":<channel>,"messages":[<message>...],"has_more":bool}
//                        (ids greater than after_message_id, oldest first)
//   take_push_payloads: {"push_payloads":[...]}
// A refusal by the chat service keeps its code and domain verbatim (a refused
// start: code 900600, domain "QXDErrorDomain CALL_ID:<call id>"); "message" is
// its localized description. Errors of the protocol itself use the domain
// kWireErrorDomain with the codes of WireErrorCode, and the short name of the
// error as "message" prefix (e.g. "unknown_op: ...").
//
// Events (server to client, after login), in message-id order per connection:
//   {"type":"event","event":"message","message":<message>,"channel":<channel>}
// for every message another member sent in one of the user's channels while
// this connection was logged in.
//
// Objects:
//   <user>    {"user_id","nickname","profile_url"}
//   <channel> {"channel_url","name","is_public","is_super","members":[<user>...]}
//   <message> {"message_id","channel_url","message","custom_type","data",
//              "created_at" (ms since the epoch),"sender":<user>}
//
// Database (SQLite, --db): the server writes each message before it replies to
// the send, so a restart on the same file loses nothing it acknowledged and
// message ids keep growing.
//   messages(message_id INTEGER PRIMARY KEY, channel_url TEXT, sender_id TEXT,
//            message TEXT, custom_type TEXT, data TEXT, created_at INTEGER,
//            sender_nickname TEXT, sender_profile_url TEXT)
//   push_payloads(id INTEGER PRIMARY KEY AUTOINCREMENT, user_id TEXT,
//                 payload TEXT)  -- JSON text, oldest first by id
//   meta(key TEXT PRIMARY KEY, value TEXT)  -- 'store_id'
// Users and channels are not in the database: they come from the
// configuration at every start.
#pragma once

#include <cstddef>

namespace velmorin::wire {

inline constexpr std::size_t kMaxRequestFrameBytes = 256 * 1024;
inline constexpr std::size_t kHardFrameLimitBytes = 64 * 1024 * 1024;
inline constexpr int kMaxFetchLimit = 500;

inline constexpr const char* kWireErrorDomain = "VelmorinWireErrorDomain";
enum WireErrorCode : long {
    kWireMalformedJson = 1,    // "malformed_json": not JSON, or not a JSON object
    kWireFrameTooLarge = 2,    // "frame_too_large"
    kWireUnknownOp = 3,        // "unknown_op"
    kWireBadRequest = 4,       // "bad_request": a field is missing or has the wrong type
    kWireNotLoggedIn = 5,      // "not_logged_in"
    kWireUnauthorized = 6,     // "unauthorized": unknown user or wrong token
    kWireAlreadyLoggedIn = 7,  // "already_logged_in"
    kWireBinaryFrame = 8,      // "binary_frame"
};

// Keys and values.
inline constexpr const char* kOp = "op";
inline constexpr const char* kId = "id";
inline constexpr const char* kType = "type";
inline constexpr const char* kOk = "ok";
inline constexpr const char* kResult = "result";
inline constexpr const char* kError = "error";
inline constexpr const char* kEvent = "event";
inline constexpr const char* kTypeReply = "reply";
inline constexpr const char* kTypeEvent = "event";
inline constexpr const char* kEventMessage = "message";

inline constexpr const char* kOpLogin = "login";
inline constexpr const char* kOpGetChannel = "get_channel";
inline constexpr const char* kOpSend = "send";
inline constexpr const char* kOpFetch = "fetch";
inline constexpr const char* kOpTakePushPayloads = "take_push_payloads";

inline constexpr const char* kUserId = "user_id";
inline constexpr const char* kToken = "token";
inline constexpr const char* kNickname = "nickname";
inline constexpr const char* kProfileUrl = "profile_url";
inline constexpr const char* kUser = "user";
inline constexpr const char* kStoreId = "store_id";
inline constexpr const char* kChannels = "channels";
inline constexpr const char* kChannel = "channel";
inline constexpr const char* kChannelUrl = "channel_url";
inline constexpr const char* kLastMessageId = "last_message_id";
inline constexpr const char* kPushPayloads = "push_payloads";
inline constexpr const char* kName = "name";
inline constexpr const char* kIsPublic = "is_public";
inline constexpr const char* kIsSuper = "is_super";
inline constexpr const char* kMembers = "members";
inline constexpr const char* kMessage = "message";
inline constexpr const char* kMessages = "messages";
inline constexpr const char* kMessageId = "message_id";
inline constexpr const char* kCustomType = "custom_type";
inline constexpr const char* kData = "data";
inline constexpr const char* kCreatedAt = "created_at";
inline constexpr const char* kSender = "sender";
inline constexpr const char* kAfterMessageId = "after_message_id";
inline constexpr const char* kLimit = "limit";
inline constexpr const char* kHasMore = "has_more";
inline constexpr const char* kCode = "code";
inline constexpr const char* kDomain = "domain";

}  // namespace velmorin::wire
