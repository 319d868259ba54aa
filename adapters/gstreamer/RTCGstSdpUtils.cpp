#include "RTCGstSdpUtils.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace rtcgst {
namespace {

std::vector<std::string> splitLines(const std::string& sdp) {
    std::vector<std::string> lines;
    std::string line;
    std::istringstream in(sdp);
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

std::string joinLines(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& line : lines) {
        out += line + "\r\n";
    }
    return out;
}

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

std::string filterCandidates(const std::string& sdp) {
    std::vector<std::string> out;
    for (const auto& line : splitLines(sdp)) {
        if (line.rfind("a=candidate:", 0) == 0) {
            if (isRelayCandidate(line)) {
                out.push_back(sanitizeRelayCandidate(line));
            }
            continue;
        }
        out.push_back(line);
    }
    return joinLines(out);
}

std::string replaceFingerprints(const std::string& sdp, const std::string& sha256) {
    std::vector<std::string> out;
    for (const auto& line : splitLines(sdp)) {
        out.push_back(line.rfind("a=fingerprint:", 0) == 0 ? "a=fingerprint:sha-256 " + sha256
                                                           : line);
    }
    return joinLines(out);
}

std::vector<Fingerprint> fingerprints(const std::string& sdp) {
    std::vector<Fingerprint> out;
    for (const auto& line : splitLines(sdp)) {
        if (line.rfind("a=fingerprint:", 0) == 0) {
            auto w = words(line.substr(14));
            if (w.size() >= 2) {
                out.push_back({lower(w[0]), upper(w[1])});
            }
        }
    }
    return out;
}

std::vector<MediaLine> mediaLines(const std::string& sdp) {
    std::vector<MediaLine> out;
    for (const auto& line : splitLines(sdp)) {
        if (line.rfind("m=", 0) == 0) {
            MediaLine media;
            auto w = words(line.substr(2));
            media.kind = w.empty() ? "" : w[0];
            media.direction = "sendrecv";
            out.push_back(media);
        } else if (out.empty()) {
            continue;
        } else if (line.rfind("a=mid:", 0) == 0) {
            out.back().mid = line.substr(6);
        } else if (line.rfind("a=rtpmap:", 0) == 0) {
            auto w = words(line.substr(9));
            if (w.size() >= 2) {
                std::string codec = upper(w[1].substr(0, w[1].find('/')));
                int pt = -1;
                try {
                    pt = std::stoi(w[0]);
                } catch (...) {
                    continue;
                }
                if (codec == "VP8" && out.back().vp8PayloadType < 0) {
                    out.back().vp8PayloadType = pt;
                } else if (codec == "OPUS" && out.back().opusPayloadType < 0) {
                    out.back().opusPayloadType = pt;
                }
            }
        } else if (line == "a=sendrecv" || line == "a=sendonly" || line == "a=recvonly" ||
                   line == "a=inactive") {
            out.back().direction = line.substr(2);
        }
    }
    return out;
}

}  // namespace rtcgst
