#include "RTCGstSdpUtils.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>

#include "RTCGstHandles.h"

namespace rtcgst {
namespace {

std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        out.push_back(word);
    }
    return out;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

bool isLoopbackHost(const std::string& host) {
    return host == "localhost" || host == "::1" || host == "[::1]" || host.rfind("127.", 0) == 0;
}

}  // namespace

std::string percentEncode(const std::string& text) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

std::optional<TurnUri> turnUriForUrl(const std::string& url, const std::string& username,
                                     const std::string& credential) {
    std::string scheme;
    std::string rest;
    if (url.rfind("turn:", 0) == 0) {
        scheme = "turn";
        rest = url.substr(5);
    } else if (url.rfind("turns:", 0) == 0) {
        scheme = "turns";
        rest = url.substr(6);
    } else {
        return std::nullopt;
    }
    while (rest.rfind("/", 0) == 0) {
        rest.erase(0, 1);
    }
    std::string query;
    if (auto q = rest.find('?'); q != std::string::npos) {
        query = rest.substr(q + 1);
        rest = rest.substr(0, q);
    }
    if (auto at = rest.rfind('@'); at != std::string::npos) {
        rest = rest.substr(at + 1);  // credentials in the URL are replaced by ours
    }
    if (rest.empty() || rest.find_first_of(" \t\r\n/") != std::string::npos) {
        return std::nullopt;
    }
    std::string host = rest;
    std::string port = scheme == "turns" ? "5349" : "3478";
    if (rest.front() == '[') {
        auto close = rest.find(']');
        if (close == std::string::npos) {
            return std::nullopt;
        }
        host = rest.substr(0, close + 1);
        if (close + 1 < rest.size()) {
            if (rest[close + 1] != ':') {
                return std::nullopt;
            }
            port = rest.substr(close + 2);
        }
    } else if (auto colon = rest.find(':'); colon != std::string::npos) {
        host = rest.substr(0, colon);
        port = rest.substr(colon + 1);
    }
    if (host.empty() || port.empty() ||
        !std::all_of(port.begin(), port.end(), [](unsigned char c) { return std::isdigit(c); }) ||
        port.size() > 5 || std::stoi(port) > 65535) {
        return std::nullopt;
    }
    std::string transport = lower(query).find("transport=tcp") != std::string::npos ? "tcp" : "udp";
    TurnUri out;
    out.loopback = isLoopbackHost(host);
    out.redacted = scheme + "://" + host + ":" + port + "?transport=" + transport;
    out.uri = scheme + "://" + percentEncode(username) + ":" + percentEncode(credential) + "@" +
              host + ":" + port + "?transport=" + transport;
    return out;
}

bool isRelayCandidate(const std::string& line) {
    auto w = words(line);
    for (size_t i = 0; i + 1 < w.size(); ++i) {
        if (w[i] == "typ") {
            return w[i + 1] == "relay";
        }
    }
    return false;
}

std::string sanitizeRelayCandidate(const std::string& line) {
    auto w = words(line);
    for (size_t i = 0; i + 1 < w.size(); ++i) {
        if (w[i] == "raddr") {
            w[i + 1] = "0.0.0.0";
        } else if (w[i] == "rport") {
            w[i + 1] = "0";
        }
    }
    std::string out;
    for (const auto& word : w) {
        out += (out.empty() ? "" : " ") + word;
    }
    return out;
}

SdpRef parseSdp(const std::string& text) {
    GstSDPMessage* message = nullptr;
    if (gst_sdp_message_new_from_text(text.c_str(), &message) != GST_SDP_OK) {
        return nullptr;
    }
    return SdpRef(message);
}

std::string sdpText(const GstSDPMessage* message) {
    return GChars(gst_sdp_message_as_text(message)).str();
}

namespace {

/// Every media section of `sdp`, writable.
std::vector<GstSDPMedia*> medias(GstSDPMessage* sdp) {
    std::vector<GstSDPMedia*> out;
    for (guint i = 0; i < gst_sdp_message_medias_len(sdp); ++i) {
        out.push_back(&g_array_index(sdp->medias, GstSDPMedia, i));
    }
    return out;
}

void replaceAttribute(GstSDPMessage* sdp, GstSDPMedia* media, guint index, const char* key,
                      const std::string& value) {
    GstSDPAttribute attribute;
    gst_sdp_attribute_set(&attribute, key, value.c_str());
    if (media) {
        gst_sdp_media_replace_attribute(media, index, &attribute);
    } else {
        gst_sdp_message_replace_attribute(sdp, index, &attribute);
    }
}

void addFingerprints(const GstSDPAttribute* attribute, std::vector<Fingerprint>& out) {
    if (!attribute->key || g_strcmp0(attribute->key, "fingerprint") != 0 || !attribute->value) {
        return;
    }
    auto w = words(attribute->value);
    if (w.size() >= 2) {
        out.push_back({lower(w[0]), upper(w[1])});
    }
}

}  // namespace

void filterCandidates(GstSDPMessage* sdp) {
    for (GstSDPMedia* media : medias(sdp)) {
        for (guint i = gst_sdp_media_attributes_len(media); i-- > 0;) {
            const GstSDPAttribute* attribute = gst_sdp_media_get_attribute(media, i);
            if (g_strcmp0(attribute->key, "candidate") != 0) {
                continue;
            }
            std::string line =
                std::string("candidate:") + (attribute->value ? attribute->value : "");
            if (isRelayCandidate(line)) {
                replaceAttribute(sdp, media, i, "candidate",
                                 sanitizeRelayCandidate(line).substr(std::strlen("candidate:")));
            } else {
                gst_sdp_media_remove_attribute(media, i);
            }
        }
    }
}

void replaceFingerprints(GstSDPMessage* sdp, const std::string& sha256) {
    const std::string value = "sha-256 " + sha256;
    for (guint i = 0; i < gst_sdp_message_attributes_len(sdp); ++i) {
        if (g_strcmp0(gst_sdp_message_get_attribute(sdp, i)->key, "fingerprint") == 0) {
            replaceAttribute(sdp, nullptr, i, "fingerprint", value);
        }
    }
    for (GstSDPMedia* media : medias(sdp)) {
        for (guint i = 0; i < gst_sdp_media_attributes_len(media); ++i) {
            if (g_strcmp0(gst_sdp_media_get_attribute(media, i)->key, "fingerprint") == 0) {
                replaceAttribute(sdp, media, i, "fingerprint", value);
            }
        }
    }
}

std::vector<Fingerprint> fingerprints(const GstSDPMessage* sdp) {
    std::vector<Fingerprint> out;
    for (guint i = 0; i < gst_sdp_message_attributes_len(sdp); ++i) {
        addFingerprints(gst_sdp_message_get_attribute(sdp, i), out);
    }
    for (guint m = 0; m < gst_sdp_message_medias_len(sdp); ++m) {
        const GstSDPMedia* media = gst_sdp_message_get_media(sdp, m);
        for (guint i = 0; i < gst_sdp_media_attributes_len(media); ++i) {
            addFingerprints(gst_sdp_media_get_attribute(media, i), out);
        }
    }
    return out;
}

std::vector<MediaLine> mediaLines(const GstSDPMessage* sdp) {
    std::vector<MediaLine> out;
    for (guint m = 0; m < gst_sdp_message_medias_len(sdp); ++m) {
        const GstSDPMedia* media = gst_sdp_message_get_media(sdp, m);
        MediaLine line;
        line.kind = gst_sdp_media_get_media(media) ? gst_sdp_media_get_media(media) : "";
        line.direction = "sendrecv";
        for (guint i = 0; i < gst_sdp_media_attributes_len(media); ++i) {
            const GstSDPAttribute* attribute = gst_sdp_media_get_attribute(media, i);
            const std::string key = attribute->key ? attribute->key : "";
            const std::string value = attribute->value ? attribute->value : "";
            if (key == "mid") {
                line.mid = value;
            } else if (key == "rtpmap") {
                auto w = words(value);
                if (w.size() < 2) {
                    continue;
                }
                std::string codec = upper(w[1].substr(0, w[1].find('/')));
                int pt = -1;
                try {
                    pt = std::stoi(w[0]);
                } catch (...) {
                    continue;
                }
                if (codec == "VP8" && line.vp8PayloadType < 0) {
                    line.vp8PayloadType = pt;
                } else if (codec == "OPUS" && line.opusPayloadType < 0) {
                    line.opusPayloadType = pt;
                }
            } else if (value.empty() && (key == "sendrecv" || key == "sendonly" ||
                                         key == "recvonly" || key == "inactive")) {
                line.direction = key;
            }
        }
        out.push_back(std::move(line));
    }
    return out;
}

}  // namespace rtcgst
