// A STUN or TURN server of a peer connection's configuration.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

class RTCIceServer final {
  public:
    /// `initWithURLStrings:username:credential:`. URLs are "turn:host:port",
    /// optionally with "?transport=udp|tcp", or "stun:host:port".
    static std::shared_ptr<RTCIceServer> initWithURLStrings(
        std::vector<std::string> urlStrings, std::optional<std::string> username = std::nullopt,
        std::optional<std::string> credential = std::nullopt);

    RTCIceServer(std::vector<std::string> urlStrings, std::optional<std::string> username,
                 std::optional<std::string> credential);

    const std::vector<std::string>& urlStrings() const { return urlStrings_; }
    const std::optional<std::string>& username() const { return username_; }
    const std::optional<std::string>& credential() const { return credential_; }

    /// Names the URLs only: user name and credential are never written out.
    std::string description() const;

  private:
    std::vector<std::string> urlStrings_;
    std::optional<std::string> username_;
    std::optional<std::string> credential_;
};

using RTCIceServerPtr = std::shared_ptr<RTCIceServer>;
