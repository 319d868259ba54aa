#include "SdpSample.h"

namespace qxvc::bench {

namespace {

const char* const kHeader =
    "v=0\r\n"
    "o=- 7412569230143382117 2 IN IP4 127.0.0.1\r\n"
    "s=-\r\n"
    "t=0 0\r\n"
    "a=group:BUNDLE 0 1\r\n"
    "a=extmap-allow-mixed\r\n"
    "a=msid-semantic: WMS ARDAMS\r\n";

const char* const kAudio =
    "m=audio 9 UDP/TLS/RTP/SAVPF 111 63 103 104 9 0 8 106 105 13 110 112 113 126\r\n"
    "c=IN IP4 0.0.0.0\r\n"
    "a=rtcp:9 IN IP4 0.0.0.0\r\n"
    "a=ice-ufrag:Qx7v\r\n"
    "a=ice-pwd:4nWq9C0rGm1Hq6bHc5y8Zr3T\r\n"
    "a=ice-options:trickle renomination\r\n"
    "a=fingerprint:sha-256 5B:3A:91:0C:7E:44:D2:18:AF:60:39:BE:72:C1:0D:E5:88:14:6F:"
    "A3:29:5C:D7:0B:E2:41:9F:36:C8:7A:11:B4\r\n"
    "a=setup:actpass\r\n"
    "a=mid:0\r\n"
    "a=extmap:1 urn:ietf:params:rtp-hdrext:ssrc-audio-level\r\n"
    "a=extmap:2 http://www.webrtc.org/experiments/rtp-hdrext/abs-send-time\r\n"
    "a=extmap:3 http://www.ietf.org/id/draft-holmer-rmcat-transport-wide-cc-extensions-01\r\n"
    "a=extmap:4 urn:ietf:params:rtp-hdrext:sdes:mid\r\n"
    "a=sendrecv\r\n"
    "a=msid:ARDAMS ARDAMSa0\r\n"
    "a=rtcp-mux\r\n"
    "a=rtpmap:111 opus/48000/2\r\n"
    "a=rtcp-fb:111 transport-cc\r\n"
    "a=fmtp:111 minptime=10;useinbandfec=1\r\n"
    "a=rtpmap:63 red/48000/2\r\n"
    "a=fmtp:63 111/111\r\n"
    "a=rtpmap:103 ISAC/16000\r\n"
    "a=rtpmap:104 ISAC/32000\r\n"
    "a=rtpmap:9 G722/8000\r\n"
    "a=rtpmap:0 PCMU/8000\r\n"
    "a=rtpmap:8 PCMA/8000\r\n"
    "a=rtpmap:106 CN/32000\r\n"
    "a=rtpmap:105 CN/16000\r\n"
    "a=rtpmap:13 CN/8000\r\n"
    "a=rtpmap:110 telephone-event/48000\r\n"
    "a=rtpmap:112 telephone-event/32000\r\n"
    "a=rtpmap:113 telephone-event/16000\r\n"
    "a=rtpmap:126 telephone-event/8000\r\n"
    "a=ssrc:1693219458 cname:f3Xk2pQm9Lw0aZ7c\r\n"
    "a=ssrc:1693219458 msid:ARDAMS ARDAMSa0\r\n";

const char* const kVideoHead =
    "m=video 9 UDP/TLS/RTP/SAVPF 96 97 98 99 100 101 102 121 127 120 125 107 108 109 35 36\r\n"
    "c=IN IP4 0.0.0.0\r\n"
    "a=rtcp:9 IN IP4 0.0.0.0\r\n"
    "a=ice-ufrag:Qx7v\r\n"
    "a=ice-pwd:4nWq9C0rGm1Hq6bHc5y8Zr3T\r\n"
    "a=ice-options:trickle renomination\r\n"
    "a=fingerprint:sha-256 5B:3A:91:0C:7E:44:D2:18:AF:60:39:BE:72:C1:0D:E5:88:14:6F:"
    "A3:29:5C:D7:0B:E2:41:9F:36:C8:7A:11:B4\r\n"
    "a=setup:actpass\r\n"
    "a=mid:1\r\n"
    "a=extmap:14 urn:ietf:params:rtp-hdrext:toffset\r\n"
    "a=extmap:2 http://www.webrtc.org/experiments/rtp-hdrext/abs-send-time\r\n"
    "a=extmap:13 urn:3gpp:video-orientation\r\n"
    "a=extmap:3 http://www.ietf.org/id/draft-holmer-rmcat-transport-wide-cc-extensions-01\r\n"
    "a=extmap:5 http://www.webrtc.org/experiments/rtp-hdrext/playout-delay\r\n"
    "a=extmap:6 http://www.webrtc.org/experiments/rtp-hdrext/video-content-type\r\n"
    "a=extmap:7 http://www.webrtc.org/experiments/rtp-hdrext/video-timing\r\n"
    "a=extmap:8 http://www.webrtc.org/experiments/rtp-hdrext/color-space\r\n"
    "a=extmap:4 urn:ietf:params:rtp-hdrext:sdes:mid\r\n"
    "a=sendrecv\r\n"
    "a=msid:ARDAMS ARDAMSv0\r\n"
    "a=rtcp-mux\r\n"
    "a=rtcp-rsize\r\n";

void appendCodec(std::string& sdp, int pt, const char* name, int rtxPt, const char* fmtp) {
    const std::string p = std::to_string(pt);
    const std::string r = std::to_string(rtxPt);
    sdp += "a=rtpmap:" + p + " " + name + "/90000\r\n";
    for (const char* fb : {"goog-remb", "transport-cc", "ccm fir", "nack", "nack pli"}) {
        sdp += "a=rtcp-fb:" + p + " " + fb + "\r\n";
    }
    if (fmtp != nullptr) {
        sdp += "a=fmtp:" + p + " " + fmtp + "\r\n";
    }
    sdp += "a=rtpmap:" + r + " rtx/90000\r\n";
    sdp += "a=fmtp:" + r + " apt=" + p + "\r\n";
}

}  // namespace

std::string sampleSessionDescription() {
    std::string sdp = kHeader;
    sdp += kAudio;
    sdp += kVideoHead;
    appendCodec(sdp, 96, "VP8", 97, nullptr);
    appendCodec(sdp, 98, "VP9", 99, "profile-id=0");
    appendCodec(sdp, 100, "VP9", 101, "profile-id=2");
    appendCodec(sdp, 102, "H264", 121,
                "level-asymmetry-allowed=1;packetization-mode=1;profile-level-id=42001f");
    appendCodec(sdp, 127, "H264", 120,
                "level-asymmetry-allowed=1;packetization-mode=0;profile-level-id=42001f");
    sdp += "a=rtpmap:125 red/90000\r\na=rtpmap:107 rtx/90000\r\na=fmtp:107 apt=125\r\n";
    sdp += "a=rtpmap:108 ulpfec/90000\r\n";
    sdp += "a=ssrc-group:FID 2837105544 3150682271\r\n";
    for (const char* ssrc : {"2837105544", "3150682271"}) {
        sdp += std::string("a=ssrc:") + ssrc + " cname:f3Xk2pQm9Lw0aZ7c\r\n";
        sdp += std::string("a=ssrc:") + ssrc + " msid:ARDAMS ARDAMSv0\r\n";
    }
    return sdp;
}

}  // namespace qxvc::bench
