// A session description as the WebRTC platform hands it over: its type and its
// SDP text.
#pragma once

#include <memory>
#include <ostream>
#include <string>

enum RTCSdpType : long {
    RTCSdpTypeOffer,
    RTCSdpTypePrAnswer,
    RTCSdpTypeAnswer,
    RTCSdpTypeRollback,
};

class RTCSessionDescription final {
  public:
    /// `initWithType:sdp:`.
    RTCSessionDescription(RTCSdpType type, std::string sdp);

    RTCSdpType type() const { return type_; }
    const std::string& sdp() const { return sdp_; }

    /// "offer", "pranswer", "answer", "rollback"; a value outside the enumeration
    /// gives "".
    static std::string stringForType(RTCSdpType type);
    /// The inverse of stringForType, matched exactly (case-sensitive). Text that
    /// names no type gives RTCSdpTypeOffer, the first type: a description read
    /// from a document with a missing or misspelt type is then treated as an
    /// offer, whose SDP the engine still checks when it is applied.
    static RTCSdpType typeForString(const std::string& string);

    /// "RTCSessionDescription:\n<type text>\n<sdp>".
    std::string description() const;

  private:
    RTCSdpType type_;
    std::string sdp_;
};

using RTCSessionDescriptionPtr = std::shared_ptr<const RTCSessionDescription>;

std::ostream& operator<<(std::ostream& os, const RTCSessionDescription& description);
