// Description helpers of the GStreamer engine: TURN URIs, candidate lines, and
// the edits and readings of session descriptions (DTLS fingerprints, candidate
// filtering, media lines), which go through GstSDP.
#pragma once

#include <gst/sdp/sdp.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rtcgst {

struct SdpDeleter {
    void operator()(GstSDPMessage* message) const { gst_sdp_message_free(message); }
};
using SdpRef = std::unique_ptr<GstSDPMessage, SdpDeleter>;

/// The description in `text`; nullptr when GstSDP cannot read it.
SdpRef parseSdp(const std::string& text);
/// `message` as SDP text.
std::string sdpText(const GstSDPMessage* message);

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
/// Drops every non-relay candidate attribute of `sdp` and sanitizes the rest.
void filterCandidates(GstSDPMessage* sdp);

/// Sets every fingerprint attribute (session and media level) to
/// "sha-256 <sha256>".
void replaceFingerprints(GstSDPMessage* sdp, const std::string& sha256);

struct Fingerprint {
    std::string algorithm;  ///< lower case, "sha-256"
    std::string value;      ///< upper-case hex pairs separated by ':'
};
/// The fingerprints of `sdp` (session level, then every media line), normalized.
std::vector<Fingerprint> fingerprints(const GstSDPMessage* sdp);

struct MediaLine {
    std::string kind;  ///< "audio", "video", "application", ...
    std::string mid;
    int vp8PayloadType = -1;
    int opusPayloadType = -1;
    std::string direction;  ///< "sendrecv", "recvonly", ... ("sendrecv" if absent)
};
/// The media lines of `sdp`, in order.
std::vector<MediaLine> mediaLines(const GstSDPMessage* sdp);

}  // namespace rtcgst
