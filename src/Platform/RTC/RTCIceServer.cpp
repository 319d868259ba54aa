#include "VelmorinVideoChat/Platform/RTC/RTCIceServer.h"

std::shared_ptr<RTCIceServer> RTCIceServer::initWithURLStrings(
    std::vector<std::string> urlStrings, std::optional<std::string> username,
    std::optional<std::string> credential) {
    return std::make_shared<RTCIceServer>(std::move(urlStrings), std::move(username),
                                          std::move(credential));
}

RTCIceServer::RTCIceServer(std::vector<std::string> urlStrings, std::optional<std::string> username,
                           std::optional<std::string> credential)
    : urlStrings_(std::move(urlStrings)),
      username_(std::move(username)),
      credential_(std::move(credential)) {}

std::string RTCIceServer::description() const {
    std::string out = "RTCIceServer:\n[";
    for (size_t i = 0; i < urlStrings_.size(); ++i) {
        out += (i ? ", " : "") + urlStrings_[i];
    }
    return out + "]";
}
