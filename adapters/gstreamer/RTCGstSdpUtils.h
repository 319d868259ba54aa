// Text helpers of the GStreamer engine: TURN URIs, candidate and SDP rewriting,
// DTLS fingerprints and the media lines of an offer. No GStreamer types here.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace rtcgst {

/// Percent-encodes every byte outside RFC 3986's unreserved set.
std::string percentEncode(const std::string& text);

struct TurnUri {
    /// "turn://<user>:<password>@host:port?transport=udp", user and password
    /// percent-encoded (libnice needs ":", "/", "+", "=" escaped).
    std::string uri;
    /// The server is on a loopback address (127.0.0.0/8, ::1, "localhost").
    bool loopback = false;
    /// "host:port" without credentials, safe to log.
    std::string redacted;
};

/// The webrtcbin form of an ICE server URL ("turn:host[:port][?transport=...]",
/// "turns:..."). UDP is used unless the URL asks for TCP. nullopt for other
/// schemes or a malformed URL.
std::optional<TurnUri> turnUriForUrl(const std::string& url, const std::string& username,
                                     const std::string& credential);

/// A candidate line (with or without "a=" / "candidate:") whose type is relay.
bool isRelayCandidate(const std::string& line);
/// Writes "raddr 0.0.0.0 rport 0" into a relay candidate, so the address the
/// relay was allocated from never leaves the device.
std::string sanitizeRelayCandidate(const std::string& line);
/// Drops every non-relay "a=candidate" line of `sdp` and sanitizes the rest.
std::string filterCandidates(const std::string& sdp);

/// Replaces every "a=fingerprint:" line with "a=fingerprint:sha-256 <fingerprint>".
std::string replaceFingerprints(const std::string& sdp, const std::string& sha256);

struct Fingerprint {
    std::string algorithm;  ///< lower case, "sha-256"
    std::string value;      ///< upper-case hex pairs separated by ':'
};
/// The fingerprints of `sdp` (session level and every media line), normalized.
std::vector<Fingerprint> fingerprints(const std::string& sdp);

struct MediaLine {
    std::string kind;  ///< "audio", "video", "application", ...
    std::string mid;
    int vp8PayloadType = -1;
    int opusPayloadType = -1;
    std::string direction;  ///< "sendrecv", "recvonly", ... ("sendrecv" if absent)
};
/// The media lines of `sdp`, in order.
std::vector<MediaLine> mediaLines(const std::string& sdp);

}  // namespace rtcgst
